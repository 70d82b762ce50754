#include "veltra/platform/sync.h"

#include <cerrno>
#include <memory>
#include <semaphore.h>

namespace
{

sem_t* Semaphore(void* pSemaphore)
{
    return static_cast<sem_t*>(pSemaphore);
}

} // namespace

CSync::CSync() = default;

CSync::CSync(const CSync& /*tOther*/) : CSync() {}

// cppcheck-suppress operatorEqVarError ; the copy of a semaphore is another one
CSync& CSync::operator=(const CSync& /*tOther*/) // NOLINT(bugprone-unhandled-self-assignment): changes nothing
{
    return *this;
}

CSync::~CSync()
{
    Destroy();
}

bool CSync::Create()
{
    Destroy();
    auto ptSemaphore = std::make_unique<sem_t>();
    if (sem_init(ptSemaphore.get(), 0, 0) != 0)
    {
        return false;
    }
    m_pSemaphore = ptSemaphore.release();
    m_bCreated = true;
    return true;
}

void CSync::Take()
{
    while (sem_wait(Semaphore(m_pSemaphore)) != 0 && errno == EINTR)
    {
    }
}

void CSync::Give()
{
    sem_post(Semaphore(m_pSemaphore));
}

void CSync::Destroy()
{
    if (m_bCreated)
    {
        sem_destroy(Semaphore(m_pSemaphore));
        delete Semaphore(m_pSemaphore);
        m_pSemaphore = nullptr;
        m_bCreated = false;
    }
}

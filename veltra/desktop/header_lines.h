#pragma once

#include <cstddef>
#include <string_view>

namespace WQCurl
{

/**
 * Follows the header lines of one answer, those of interim answers and the trailers behind a body included. libcurl
 * takes an answer that breaks off in its header lines for a success with an empty body.
 */
class CHeaderLines
{
public:
    enum RESULT_e
    {
        RESULT_MORE,     /**< more lines are to come, or a body */
        RESULT_COMPLETE, /**< the final answer's header lines are complete */
        RESULT_TOO_LARGE /**< all lines together exceed the limit */
    };

    /** Takes the next line. @param lStatus the answer's status */
    RESULT_e Take(std::string_view strLine, long lStatus);

    bool HaveBegun() const { return m_nBytes > 0; }
    bool AreComplete() const { return m_bComplete; }

private:
    size_t m_nBytes = 0;
    bool m_bComplete = false;
};

} // namespace WQCurl

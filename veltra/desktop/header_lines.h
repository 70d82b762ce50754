#pragma once

#include <cstddef>
#include <curl/curl.h>
#include <string>
#include <string_view>
#include <vector>

namespace WQCurl
{

/**
 * The header lines of one answer. libcurl takes an answer that breaks off in its header lines for a success with an
 * empty body, and its own functions for reading them take a time that grows with the square of their number.
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

    /** Takes the next line of pEasy's answer, also of an interim answer or the trailers behind a body. */
    RESULT_e Take(std::string_view strLine, CURL* pEasy);

    /** Forgets all lines. */
    void Clear();

    bool HaveBegun() const { return m_nBytes > 0; }
    bool AreComplete() const { return m_bComplete; }

    /** Returns the lines of the last answer without status line and trailers, each unfolded and without its end. */
    std::vector<std::string_view> All() const;

    /** Returns the value of each line with this name. */
    std::vector<std::string_view> Values(std::string_view strName) const;

    /** Returns these values joined by ", "; empty if there is none. */
    std::string Value(std::string_view strName) const;

private:
    void Keep(std::string_view strLine);

    size_t m_nBytes = 0;
    bool m_bComplete = false;
    std::string m_strLines; /**< each ends in "\n" */
};

} // namespace WQCurl

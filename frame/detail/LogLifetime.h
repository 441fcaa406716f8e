#pragma once

#include <kvcore/platform/export.h>

class KVLogFile;

namespace kv::detail
{

/// Lets the log live: made and ended in its place among the library's static objects.
class KVCORE_API LogLifetime
{
public:
    LogLifetime();
    LogLifetime(LogLifetime const &) = delete;
    LogLifetime & operator=(LogLifetime const &) = delete;
    ~LogLifetime();

    /// Another log beside the process's, for tests; and what becomes of a log at its end: it closes its file and from
    /// then on does nothing. The caller owns it, and deletes it after that.
    static KVLogFile * Make();
    static void End(KVLogFile & log);
    static void Delete(KVLogFile * log);
};

} // namespace kv::detail

#pragma once

#include <memory>
#include <string>
#include <vector>

#include <kvcore/frame/KVLogFile.h>
#include <kvcore/frame/detail/LogLifetime.h>
#include <support/ScratchFolder.h>

/// A log of a test's own, so that no test sees what another one did to the process's.
struct LooseLog
{
    struct Deleter
    {
        void operator()(KVLogFile * log) const
        {
            kv::detail::LogLifetime::Delete(log);
        }
    };
    std::unique_ptr<KVLogFile, Deleter> log{kv::detail::LogLifetime::Make()};

    KVLogFile * operator->() const
    {
        return log.get();
    }
    KVLogFile & operator*() const
    {
        return *log;
    }
    /// Closes the file.
    void End() const
    {
        kv::detail::LogLifetime::End(*log);
    }
};

constexpr std::size_t stampLength = 22; // "[00:00:00] 0123456789 "

/// The lines of a log without their line ends, which must all be there.
std::vector<std::string> LinesOf(std::string const & bytes);
/// The same without the stamps, which must all be well-formed.
std::vector<std::string> TextsOf(std::string const & bytes);

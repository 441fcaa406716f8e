#pragma once

// The text of a report on its way to a file. No heap, no locks, no C library formatting.

#include <cstddef>
#include <cstdint>

namespace kv::platform
{

class ReportText
{
public:
    explicit ReportText(int descriptor) : file(descriptor) {}
    ReportText(ReportText const &) = delete;
    ReportText & operator=(ReportText const &) = delete;

    ReportText & Put(char const * text);
    ReportText & Put(char const * text, std::size_t size);
    /// Bytes from elsewhere: what is no printable ASCII or UTF-8 comes out as a question mark.
    ReportText & PutForeign(char const * text, std::size_t size);
    ReportText & PutForeign(char16_t const * text, std::size_t size);
    ReportText & Decimal(std::uint64_t value, int digits = 1);
    /// 0x and at least so many digits.
    ReportText & Hex(std::uint64_t value, int digits = 1);

    /// Writes out what has been put so far; what comes may fault.
    void Flush();
    /// Whether anything was written.
    bool HasAny() const
    {
        return hasWritten;
    }
    /// Whether all was written.
    bool IsWhole() const
    {
        return !failed;
    }

private:
    void PutPoint(char32_t point);
    ReportText & Number(std::uint64_t value, unsigned base, int digits);

    int file;
    bool failed = false;
    bool hasWritten = false;
    std::size_t fill = 0;
    char buffer[4096];
};

} // namespace kv::platform

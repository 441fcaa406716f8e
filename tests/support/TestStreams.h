#pragma once

// Streams for tests: ones that record what reaches them, and ones that fail at a chosen call.

#include <cstring>
#include <string>
#include <vector>

#include <kvcore/streams/Streams.h>

namespace kv::test
{

/// The end of a chain that keeps each write as it came.
class RecordingOutputStream : public OutputStream
{
public:
    RecordingOutputStream() : OutputStream(nullptr) {}

    void Write(char const * data, int size) override
    {
        writes.emplace_back(data, static_cast<std::size_t>(size));
    }

    std::string Content() const
    {
        std::string content;
        for (std::string const & write : writes)
        {
            content += write;
        }
        return content;
    }

    OutputStream const * Upstream() const
    {
        return upstream;
    }

    std::vector<std::string> writes;
};

/// What the failing streams throw, known by its code and its text.
inline StreamBase::Exception TestFailure()
{
    return {1, TEXT("No luck today")};
}

/// Fails at its n-th write, counted from 1, or at that and all later ones; takes nothing of a write that fails.
class FailingOutputStream : public RecordingOutputStream
{
public:
    enum class Mode
    {
        Once,
        Always
    };

    explicit FailingOutputStream(int failingCall, Mode failureMode = Mode::Once)
        : failAt(failingCall), mode(failureMode)
    {
    }

    void Write(char const * data, int size) override
    {
        ++calls;
        if (calls == failAt || (calls > failAt && mode == Mode::Always))
        {
            ++failures;
            refused.assign(data, static_cast<std::size_t>(size));
            throw TestFailure();
        }
        RecordingOutputStream::Write(data, size);
    }

    int failAt;
    Mode mode;
    int calls = 0;
    int failures = 0;
    std::string refused; // the last write that failed
};

/// Delivers a text and keeps the size of each read. Fails at its n-th read if told to, consuming nothing, and with
/// "Memory block too short" at the end of the text.
class RecordingInputStream : public InputStream
{
public:
    explicit RecordingInputStream(std::string text, int failingCall = 0)
        : InputStream(nullptr), content(std::move(text)), failAt(failingCall)
    {
    }

    void Read(char * data, int size) override
    {
        reads.push_back(size);
        if (static_cast<int>(reads.size()) == failAt)
        {
            ++failures;
            throw TestFailure();
        }
        if (static_cast<std::size_t>(size) > content.size() - position)
        {
            throw Exception{5, TEXT("Memory block too short")};
        }
        std::memcpy(data, content.data() + position, static_cast<std::size_t>(size));
        position += static_cast<std::size_t>(size);
    }

    std::string content;
    std::size_t position = 0;
    int failAt;
    int failures = 0;
    std::vector<int> reads;
};

} // namespace kv::test

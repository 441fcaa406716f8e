#include <kvcore/tools/kv/Window.h>

#include <algorithm>
#include <cstring>

namespace kv::tools
{

Window::Window(SourceStream & stream) : InputStream(&stream), below(stream), buffer(capacity) {}

void Window::ReadPieces(char * data, int size)
{
    while (size > 0)
    {
        if (begin == end && !FillMore())
        {
            throw StreamBase::Exception{5, String(TEXT("Unexpected end of file"))};
        }
        std::size_t const piece = std::min(end - begin, static_cast<std::size_t>(size));
        std::memcpy(data, buffer.data() + begin, piece);
        begin += piece;
        data += piece;
        size -= static_cast<int>(piece);
    }
}

bool Window::Fill(std::size_t count)
{
    while (end - begin < count)
    {
        if (!FillMore())
        {
            return false;
        }
    }
    return true;
}

bool Window::FillMore()
{
    if (ended || end - begin == capacity)
    {
        return false;
    }
    if (begin == end || end == capacity)
    {
        std::memmove(buffer.data(), buffer.data() + begin, end - begin);
        dropped += begin;
        end -= begin;
        begin = 0;
    }
    int const delivered = below.ReadSome(buffer.data() + end, static_cast<int>(capacity - end));
    ended = delivered == 0;
    end += static_cast<std::size_t>(delivered);
    return !ended;
}

} // namespace kv::tools

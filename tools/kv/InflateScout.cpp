#include <kvcore/tools/kv/InflateScout.h>

#include <algorithm>
#include <new>
#include <zlib.h>

namespace kv::tools
{

struct ScoutedWindow::Scout
{
    Scout()
    {
        if (inflateInit(&zlib) != Z_OK)
        {
            throw std::bad_alloc();
        }
    }

    ~Scout()
    {
        inflateEnd(&zlib);
    }

    Scout(Scout const &) = delete;
    Scout & operator=(Scout const &) = delete;

    // Takes from `input`, moves it on, and returns how many bytes came out.
    std::size_t Inflate(std::string_view & input)
    {
        if (result != Z_OK)
        {
            return 0;
        }
        zlib.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(input.data()));
        zlib.avail_in = static_cast<uInt>(input.size());
        zlib.next_out = dropped.data();
        zlib.avail_out = static_cast<uInt>(dropped.size());
        result = inflate(&zlib, Z_NO_FLUSH);
        result = result == Z_BUF_ERROR ? Z_OK : result; // it waits for more input
        input.remove_prefix(input.size() - zlib.avail_in);
        return dropped.size() - zlib.avail_out;
    }

    z_stream zlib = {};
    int result = Z_OK;
    std::vector<Bytef> dropped = std::vector<Bytef>(64 * 1024);
};

ScoutedWindow::ScoutedWindow(SourceStream & stream) : Window(stream), scout(std::make_unique<Scout>()) {}

ScoutedWindow::~ScoutedWindow() = default;

std::size_t ScoutedWindow::AvailableBytes()
{
    while (available == 0 && scout->result == Z_OK)
    {
        std::string_view unseen = Ahead().substr(static_cast<std::size_t>(scouted - Offset()));
        std::size_t const before = unseen.size();
        available += scout->Inflate(unseen);
        scouted += before - unseen.size();
        if (available == 0 && unseen.empty() && !FillMore())
        {
            break;
        }
    }
    return available;
}

void ScoutedWindow::Delivered(std::size_t count)
{
    available -= std::min(available, count);
}

bool ScoutedWindow::Ended() const
{
    return scout->result == Z_STREAM_END;
}

void ScoutedWindow::Read(char * data, int size)
{
    Window::Read(data, size);
    // The stream goes on behind what was scouted only if a whole window holds no data, as a long run of empty blocks
    // does. The scout then follows it.
    if (Offset() > scouted)
    {
        std::string_view unseen(data, static_cast<std::size_t>(size));
        unseen.remove_prefix(unseen.size() - static_cast<std::size_t>(Offset() - scouted));
        while (std::size_t const count = scout->Inflate(unseen))
        {
            available += count;
        }
        scouted = Offset();
    }
}

} // namespace kv::tools

#include <kvcore/examples/storyboard/Storyboard.h>

#include <kvcore/platform/win32.h>
#include <kvcore/tools/support/Terminal.h>

namespace
{

int Run(std::vector<std::string> const & arguments, kv::tools::Console & console)
{
    using kv::tools::StandardStream;
    Storyboard::Screen const screen{
        kv::tools::TerminalWidth(StandardStream::Output), kv::tools::TerminalWidth(StandardStream::Error)};
    return Storyboard::RunStoryboard(arguments, console, screen, GetUserDefaultLangID());
}

} // namespace

int main(int argc, char ** argv)
{
    return kv::tools::RunProgram(argc, argv, "storyboard", Run);
}

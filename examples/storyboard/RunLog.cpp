#include <kvcore/examples/storyboard/RunLog.h>

#include <kvcore/examples/storyboard/Failure.h>
#include <kvcore/examples/storyboard/Texts.h>
#include <kvcore/frame/KVLogFile.h>
#include <kvcore/tools/support/Paths.h>

namespace Storyboard
{

void StartLog(std::string const & typedPath)
{
    String const path = kv::tools::TypedPath(typedPath);
    try
    {
        KVLogFile::Object().SetFilename(path.c_str());
    }
    catch (StreamBase::Exception const & failure)
    {
        throw Failure{kv::tools::ExitIo, Text(TEXT_NO_LOG, Printable(kv::tools::ShownPath(path)), failure.text.Utf8())};
    }
}

void Log(LogLevel level, std::string const & text)
{
    KVLogFile & log = KVLogFile::Object();
    log.SetThreadIndent(level);
    log.AddLine(String::FromUtf8(text));
}

} // namespace Storyboard

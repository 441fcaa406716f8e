#include <support/DebugOutput.h>

#include <kvcore/core/String.h>
#include <kvcore/platform/win32.h>

namespace
{

std::vector<std::string> texts;

} // namespace

DebugOutput::DebugOutput()
{
    texts.clear();
    kv::platform::SetDebugReceiver([](WCHAR const * text) { texts.push_back(String(text).Utf8()); });
}

DebugOutput::~DebugOutput()
{
    kv::platform::SetDebugReceiver(nullptr);
}

std::vector<std::string> const & DebugOutput::Texts() const
{
    return texts;
}

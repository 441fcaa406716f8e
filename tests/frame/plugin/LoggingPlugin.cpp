#include "LoggingPlugin.h"

void PluginAddsLine(KVLogFile & log, String const & text)
{
    log.AddLine(text);
}

void PluginAddsFormattedLine(IKVLogFile & log, int number)
{
    log.AddFormattedLine(TEXT("number %i"), number);
}

void PluginAddsException(KVLogFile & log)
{
    log.AddLine(WinException(TEXT("Plain")));
}

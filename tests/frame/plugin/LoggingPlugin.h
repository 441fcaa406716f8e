#pragma once

#include <kvcore/core/String.h>
#include <kvcore/frame/KVLogFile.h>

// A module of its own that writes to a log, as the very last step of its functions. Its name is too long for a line.

void PluginAddsLine(KVLogFile & log, String const & text);
void PluginAddsFormattedLine(IKVLogFile & log, int number);
void PluginAddsException(KVLogFile & log);

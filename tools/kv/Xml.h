#pragma once

#include <string>
#include <vector>

#include <kvcore/tools/support/Program.h>

namespace kv::tools
{

/// What `kv xml` was asked for.
struct XmlOptions
{
    std::string file;   ///< "-" for the standard input
    std::string with;   ///< the path, the schema or the style sheet
    std::string output; ///< empty or "-" for the standard output
    std::string indent = "2";
    bool compact = false;
    std::vector<std::string> prefixes; ///< "prefix=namespace" each
    bool count = false;
    bool xml = false;
    bool nul = false;
};

// Each gives an exit code, and throws UsageError, IoFailure and OutputFailure.

[[nodiscard]] int FormatXml(XmlOptions const & options, Console & console);
[[nodiscard]] int QueryXml(XmlOptions const & options, Console & console);
[[nodiscard]] int ValidateXml(XmlOptions const & options, Console & console);
[[nodiscard]] int TransformXml(XmlOptions const & options, Console & console);

} // namespace kv::tools

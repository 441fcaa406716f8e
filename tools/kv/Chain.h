#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kv::tools
{

/// The formats that a chain is made of.
enum class StageKind
{
    Deflate,
    Crc,
    Base64,
    Crypt,
};

/// One stage of a chain.
struct Stage
{
    StageKind kind;
    int parameter; ///< deflate: the level, -1 to 9; base64: the line width, 0 for one line
};

/// What stages without a number of their own take.
struct StageDefaults
{
    int level = -1;
    int lineWidth = 76;
};

/// The name by which a chain text calls a stage.
[[nodiscard]] char const * StageName(StageKind kind);

/// Reads "deflate:9,crc,base64": stages in the order in which data passes when it is encoded. Throws `UsageError`.
[[nodiscard]] std::vector<Stage> ParseChain(std::string_view text, StageDefaults const & defaults);

/// Read the two numbers; `what` names them in the `UsageError`.
[[nodiscard]] int ParseLevel(std::string_view text, std::string_view what);
[[nodiscard]] int ParseLineWidth(std::string_view text, std::string_view what);

} // namespace kv::tools

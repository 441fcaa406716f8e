#pragma once

#include <cstddef>

#include <libxml/tree.h>

namespace kv::platform
{

/// What the patterns and variables of a style sheet may cost, whatever the library counts.
struct StyleSheetFigures
{
    std::size_t elements = 0;
    std::size_t deepSteps = 0; ///< the most "//" in one pattern, behind its beginning
    bool asksForIdentifiers = false;
    std::size_t dependentVariables = 0; ///< of the whole style sheet, that are made of others
};

/// Brackets the paths of a style sheet that the library would have evaluated without bounds. They mean the same.
StyleSheetFigures PrepareStyleSheet(xmlDoc & document);

} // namespace kv::platform

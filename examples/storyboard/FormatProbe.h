#pragma once

#include <cstddef>
#include <span>
#include <string>

#include <kvcore/examples/storyboard/Model.h>

namespace Storyboard
{

/// How many bytes from a file's start ProbeFormat can make use of.
inline constexpr std::size_t probeSize = 256 * 1024;

struct ProbeResult
{
    Format format;
    Ticks length = 0; ///< of what plays by itself; 0 if unknown
};

/// Tells from a file's first bytes, its name and its size what it is and how it plays.
///
/// The bytes decide, where they have a signature; dimensions, rates and lengths are read from the headers of PNG, JPEG,
/// GIF, BMP, WAV, AVI, FLAC and Ogg Vorbis. Otherwise the name's extension gives the kind, and what is unknown stays 0.
/// A damaged header gives less, never a failure.
ProbeResult ProbeFormat(std::span<unsigned char const> head, std::string const & name, std::int64_t size);

} // namespace Storyboard

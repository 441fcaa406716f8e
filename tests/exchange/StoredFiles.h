#pragma once

// Files as each target has written them once, kept beside the tests.

#include <string>
#include <vector>

namespace kv::test
{

/// The targets that have written files: "linux", "windows-x64" and "windows-x86".
std::vector<std::string> const & Targets();

/// A file that one of them has written.
std::string Stored(std::string const & target, std::string const & name);

/// Expects that these are the bytes that this target has stored under the name. With KVCORE_STORE_FILES in the
/// environment they are stored instead: for a new file.
void ExpectAsStored(std::string const & name, std::string const & bytes);

} // namespace kv::test

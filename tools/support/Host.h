#pragma once

#include <cstddef>
#include <string>
#include <vector>

/// The few things that each operating system does in its own way. One source of the same name stands in posix/ and in
/// windows/. Paths and arguments are UTF-8 (on POSIX systems: the bytes that the system has). Functions that can fail
/// return -1 and leave the reason in `errno`.
namespace kv::tools::host
{

/// The program's arguments without its own name.
[[nodiscard]] std::vector<std::string> Arguments(int count, char ** values);

/// Makes the standard streams pass bytes unchanged, and a terminal show UTF-8. Call once, before any of them is used.
void PrepareStandardStreams();

/// Opens a file for reading from its beginning; a descriptor for the functions below.
[[nodiscard]] int OpenForReading(std::string const & path);

/// Creates a file, or empties one that exists, for writing.
[[nodiscard]] int OpenForWriting(std::string const & path);

/// Reads up to `size` bytes, as many as are there without waiting for more; 0 at the end of the data.
[[nodiscard]] std::ptrdiff_t Read(int descriptor, char * data, std::size_t size);

/// Writes up to `size` bytes and returns how many went out. A pipe that nobody reads any more gives `EPIPE`.
[[nodiscard]] std::ptrdiff_t Write(int descriptor, char const * data, std::size_t size);

/// Closes; a failure here means that data written earlier did not arrive.
[[nodiscard]] int Close(int descriptor);

/// True if both paths lead to one existing regular file, also by links.
[[nodiscard]] bool IsSameFile(std::string const & first, std::string const & second);

} // namespace kv::tools::host

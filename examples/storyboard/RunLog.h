#pragma once

#include <string>

/// The log of a run, in English in every language: it is for those who look after the program.
namespace Storyboard
{

/// How far the lines of the log stand in.
enum LogLevel : unsigned
{
    LogRun,  ///< the run's begin and end
    LogStep, ///< its steps
    LogFile  ///< what became of one file
};

/// Opens the log file. Throws Failure.
void StartLog(std::string const & typedPath);

/// Writes a line of the log if there is one. UTF-8. The calling thread's later lines, those of others included, stand
/// as far in. Any thread.
void Log(LogLevel level, std::string const & text);

} // namespace Storyboard

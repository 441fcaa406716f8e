#pragma once

/// Has six threads log without a pause, and ends the process in the middle of it in the way that is named. How many
/// lines of each thread the log has taken stands in the file `counts`, for who looks after the end.
int LogBusily(char const * ending, char const * file, char const * counts);

/// Logs some lines with a way of the program's own for a signal, which is to stay.
int LogWithOwnSignals(char const * file);

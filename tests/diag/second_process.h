// Runs a second writer on a log file in another process, to observe the deny-write sharing.
#pragma once

#include <string>

enum class SecondWriterResult { kRefused, kWrote, kError };

// The other process opens a CLogWriter on `path` and, if that succeeds, writes the record
// "second writer".
SecondWriterResult RunSecondWriter(const std::string& path);

// Called first by the suite's main: true when this process is the second writer, which then
// returns its exit code through `exitCode`.
bool RunAsSecondWriter(int argc, char** argv, int& exitCode);

// The command line's face: help texts that carry the common options, the exit codes and what
// Ctrl-C does, and one-line errors with a suggestion for a misspelled word.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace kelvane::tools {

// The candidate closest to `word` by edit distance if it is close enough to be a likely typo
// ("lst" -> "list", "--sensors" -> "--sensor"), or the one candidate it is the start of
// ("--period" -> "--period-ns"); "" otherwise.
std::string closestWord(const std::string& word, const std::vector<std::string>& candidates);

// The long names of the options `app` takes itself ("--rate"), help and version included.
std::vector<std::string> optionNames(const CLI::App& app);

// "Common options ..." as help text: every option of `main` with its description.
std::string commonOptionsHelp(const CLI::App& main);

// "Exit codes: ..." as help text.
std::string exitCodesHelp();

// The one-line error for arguments nobody took: `leftover` as CLI11 left them, `main` the
// tool, `chosen` the subcommand given (null if none).
std::string unexpectedArguments(const std::vector<std::string>& leftover, const CLI::App& main,
                                const CLI::App* chosen);

}  // namespace kelvane::tools

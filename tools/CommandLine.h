// The command line's face: help texts that carry the common options, the exit codes and what
// Ctrl-C does, and one-line errors with a suggestion for a misspelled word.
#pragma once

#include <CLI/CLI.hpp>
#include <optional>
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

// CLI11's help layout with an option's value name only: which options exclude each other is the
// error's to say, not a note wedged between an option and its description.
class HelpFormatter : public CLI::Formatter {
  public:
    std::string make_option_opts(const CLI::Option* option) const override;
};

// The one-line error for arguments nobody took: `leftover` as CLI11 left them, `main` the
// tool, `chosen` the subcommand given (null if none).
std::string unexpectedArguments(const std::vector<std::string>& leftover, const CLI::App& main,
                                const CLI::App* chosen);

// The one-line error for a CLI11 parse error, in the tool's words instead of CLI11's: a repeated
// option, an option missing its value, options that exclude each other, a missing operand.
// `args` are the words parsed (without the program name). Falls back to CLI11's text.
std::string parseErrorLine(const CLI::ParseError& error, const CLI::App& main,
                           const CLI::App* chosen, const std::vector<std::string>& args);

// The one-line error for "--NAME=VALUE" words CLI11 would misread: a flag given a value
// ("--follow=no" would turn it on) or an option given an empty one ("--sensor=" would take the
// next word as its value). "" when there is none. `main` holds every subcommand.
std::string misreadValue(const std::vector<std::string>& args, const CLI::App& main);

// Where `help` is the subcommand, the words after it (the topic, if any); nullopt otherwise.
// `valueOptions` are the common options that take a value ("--host"), whose value is skipped.
std::optional<std::vector<std::string>> helpWords(const std::vector<std::string>& args,
                                                  const std::vector<std::string>& valueOptions);

// Removes "--" (the end of options) from `args`. The tool's operands (the subcommand and flush's
// handle) never start with '-', so a word after "--" that does is an error: returns it, or "".
std::string dropEndOfOptions(std::vector<std::string>* args);

}  // namespace kelvane::tools

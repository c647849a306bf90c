#include "CommandLine.h"

#include <algorithm>

#include "Output.h"

namespace kelvane::tools {

namespace {

size_t editDistance(const std::string& a, const std::string& b) {
    std::vector<size_t> row(b.size() + 1);
    for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
    for (size_t i = 1; i <= a.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            const size_t above = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (a[i - 1] != b[j - 1])});
            diagonal = above;
        }
    }
    return row[b.size()];
}

std::string longName(const CLI::Option& option) {
    const std::vector<std::string>& names = option.get_lnames();
    return names.empty() ? std::string() : "--" + names.front();
}

std::string quoted(const std::string& text) { return "\"" + printable(text) + "\""; }

}  // namespace

std::string closestWord(const std::string& word, const std::vector<std::string>& candidates) {
    // A word cut short ("--period" for "--period-ns") names the one candidate it starts.
    std::vector<std::string> extended;
    for (const std::string& candidate : candidates) {
        if (word.size() >= 3 && candidate.compare(0, word.size(), word) == 0) {
            extended.push_back(candidate);
        }
    }
    if (extended.size() == 1) return extended.front();
    std::string best;
    size_t bestDistance = 0;
    for (const std::string& candidate : candidates) {
        const size_t distance = editDistance(word, candidate);
        if (best.empty() || distance < bestDistance) {
            best = candidate;
            bestDistance = distance;
        }
    }
    // A third of the word may be wrong, and at least one letter.
    const size_t limit = std::max<size_t>(1, word.size() / 3);
    return !best.empty() && bestDistance <= limit ? best : std::string();
}

std::vector<std::string> optionNames(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::Option* option : app.get_options()) {
        const std::string name = longName(*option);
        if (!name.empty()) names.push_back(name);
    }
    return names;
}

std::string commonOptionsHelp(const CLI::App& main) {
    std::string out = "Common options, before or after the subcommand:\n";
    for (const CLI::Option* option : main.get_options()) {
        std::string name = longName(*option);
        if (name.empty() || name == "--help") continue;
        if (!option->get_type_name().empty() && option->get_type_size() != 0) {
            name += " " + option->get_type_name();
        }
        name.resize(std::max<size_t>(name.size() + 2, 18), ' ');
        out += "  " + name + option->get_description() + "\n";
    }
    return out;
}

std::string exitCodesHelp() {
    return "Exit codes: 0 success; 1 the library or the sensors did not do what was asked (it "
           "cannot be loaded, a sensor sent no events, no flush completion, a write error); "
           "2 bad usage or host description; 128 + N ended by signal N before its work was done "
           "(130: Ctrl-C).\n";
}

std::string HelpFormatter::make_option_opts(const CLI::Option* option) const {
    if (option->get_type_size() == 0 || option->get_type_name().empty()) return "";
    return " " + option->get_type_name() + (option->get_required() ? " REQUIRED" : "");
}

std::string unexpectedArguments(const std::vector<std::string>& leftover, const CLI::App& main,
                                const CLI::App* chosen) {
    // An unknown option explains more than the value that followed it.
    auto option = std::find_if(leftover.begin(), leftover.end(), [](const std::string& word) {
        return word.size() > 1 && word[0] == '-';
    });
    const std::string word = option != leftover.end() ? *option : leftover.front();
    const std::string where = chosen != nullptr ? chosen->get_name() : std::string();
    const std::string helpHint =
        chosen != nullptr ? " (iio-subhal help " + where + ")" : " (iio-subhal --help)";

    if (option == leftover.end()) {
        if (chosen != nullptr) return where + ": unexpected argument " + quoted(word) + helpHint;
        std::vector<std::string> names;
        for (const CLI::App* sub : main.get_subcommands({})) names.push_back(sub->get_name());
        std::string line = "unknown subcommand " + quoted(word);
        const std::string guess = closestWord(word, names);
        return line + (guess.empty() ? "" : "; did you mean " + guess + "?") + helpHint;
    }

    // "--rate=5" is the option "--rate".
    const std::string name = word.substr(0, word.find('='));
    std::vector<std::string> names = optionNames(main);
    if (chosen != nullptr) {
        for (const std::string& n : optionNames(*chosen)) names.push_back(n);
    }
    std::string line = (chosen != nullptr ? where + ": " : std::string()) + "unknown option " +
                       quoted(name).substr(1, quoted(name).size() - 2);
    const std::string guess = closestWord(name, names);
    if (guess == name && chosen != nullptr) {
        // Known to the subcommand, but given before it, where only common options are read.
        return where + ": " + name + " goes after the subcommand it belongs to (iio-subhal " +
               where + " " + name + " ...)" + helpHint;
    }
    if (!guess.empty()) return line + "; did you mean " + guess + "?" + helpHint;
    for (const CLI::App* sub : main.get_subcommands({})) {
        if (sub == chosen) continue;
        const std::string theirs = closestWord(name, optionNames(*sub));
        if (theirs == name) return line + "; it belongs to " + sub->get_name() + helpHint;
        if (!theirs.empty()) {
            return line + "; did you mean " + theirs + " (an option of " + sub->get_name() + ")?" +
                   helpHint;
        }
    }
    return line + helpHint;
}

namespace {

// The apps whose options may appear on the command line: the tool's and the subcommand's.
std::vector<const CLI::App*> optionOwners(const CLI::App& main, const CLI::App* chosen) {
    std::vector<const CLI::App*> apps{&main};
    if (chosen != nullptr) apps.push_back(chosen);
    return apps;
}

std::string valueName(const CLI::Option& option) {
    return option.get_type_name().empty() ? std::string("VALUE") : option.get_type_name();
}

}  // namespace

std::string parseErrorLine(const CLI::ParseError& error, const CLI::App& main,
                           const CLI::App* chosen, const std::vector<std::string>& args) {
    const std::string where = chosen != nullptr ? chosen->get_name() + ": " : std::string();
    const std::string hint = chosen != nullptr ? " (iio-subhal help " + chosen->get_name() + ")"
                                               : " (iio-subhal --help)";
    const std::vector<const CLI::App*> apps = optionOwners(main, chosen);
    if (dynamic_cast<const CLI::ArgumentMismatch*>(&error) != nullptr) {
        for (const CLI::App* app : apps) {
            for (const CLI::Option* option : app->get_options()) {
                const std::string name = longName(*option);
                if (option->count() > 1 && option->get_items_expected_max() == 1) {
                    return where + name + " is given " + std::to_string(option->count()) +
                           " times; give it once" + hint;
                }
                // An option at the end of the line, or followed by another option, has no value.
                for (size_t i = 0; i < args.size() && !name.empty(); ++i) {
                    if (args[i] != name || option->get_type_size() == 0) continue;
                    if (i + 1 == args.size() || args[i + 1].rfind("--", 0) == 0) {
                        return where + name + " needs a value (" + name + " " + valueName(*option) +
                               ")" + hint;
                    }
                }
            }
        }
    }
    if (dynamic_cast<const CLI::ExcludesError*>(&error) != nullptr) {
        for (const CLI::App* app : apps) {
            for (const CLI::Option* option : app->get_options()) {
                if (option->count() == 0) continue;
                for (const CLI::Option* other : option->get_excludes()) {
                    if (other->count() == 0) continue;
                    return where + longName(*option) + " and " + longName(*other) +
                           " cannot be given together; choose one" + hint;
                }
            }
        }
    }
    if (dynamic_cast<const CLI::RequiredError*>(&error) != nullptr && chosen != nullptr) {
        for (const CLI::Option* option : chosen->get_options()) {
            if (option->get_required() && option->count() == 0 &&
                option->nonpositional() == false) {
                return where + valueName(*option) + " is missing" + hint;
            }
        }
    }
    return where + error.what() + hint;
}

std::string misreadValue(const std::vector<std::string>& args, const CLI::App& main) {
    std::vector<const CLI::App*> apps{&main};
    for (const CLI::App* sub : main.get_subcommands({})) apps.push_back(sub);
    for (const std::string& word : args) {
        const size_t equals = word.find('=');
        if (word.rfind("--", 0) != 0 || equals == std::string::npos) continue;
        const std::string name = word.substr(0, equals);
        for (const CLI::App* app : apps) {
            const CLI::Option* option = app->get_option_no_throw(name);
            if (option == nullptr) continue;
            const std::string hint = app == &main ? std::string(" (iio-subhal --help)")
                                                  : " (iio-subhal help " + app->get_name() + ")";
            if (option->get_items_expected_max() == 0) {
                return quoted(word) + ": " + name + " takes no value; give " + name +
                       " or leave it out" + hint;
            }
            if (equals + 1 == word.size()) {
                return quoted(word) + ": " + name + " needs a value (" + name + " " +
                       valueName(*option) + ")" + hint;
            }
            break;
        }
    }
    return {};
}

std::optional<std::vector<std::string>> helpWords(const std::vector<std::string>& args,
                                                  const std::vector<std::string>& valueOptions) {
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& word = args[i];
        if (word.size() > 1 && word[0] == '-') {
            if (std::find(valueOptions.begin(), valueOptions.end(), word) != valueOptions.end()) {
                ++i;  // its value
            }
            continue;
        }
        if (word != "help") return std::nullopt;
        std::vector<std::string> rest;
        for (size_t j = i + 1; j < args.size(); ++j) {
            if (args[j].empty() || args[j][0] != '-') rest.push_back(args[j]);
        }
        return rest;
    }
    return std::nullopt;
}

std::string dropEndOfOptions(std::vector<std::string>* args) {
    auto end = std::find(args->begin(), args->end(), "--");
    if (end == args->end()) return {};
    end = args->erase(end);
    for (auto it = end; it != args->end(); ++it) {
        if (it->size() > 1 && (*it)[0] == '-') return *it;
    }
    return {};
}

}  // namespace kelvane::tools

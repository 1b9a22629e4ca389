#include "stage/words/usage_problem.h"

#include <fmt/format.h>

#include <algorithm>
#include <functional>
#include <optional>

#include "kit/words.h"
#include "stage/words/help_text.h"

namespace stage {

namespace {

using Apps = std::vector<const CLI::App*>;

Apps GetSubcommands(const CLI::App& app) {
    return app.get_subcommands([](const CLI::App*) { return true; });
}

const CLI::App* FindByName(const CLI::App& app, const std::string& name) {
    for (const CLI::App* sub : GetSubcommands(app)) {
        if (sub->get_name() == name) return sub;
    }
    return nullptr;
}

/// The commands of this name at any depth below `app`, nearest first.
const CLI::App* FindBelow(const CLI::App& app, const std::string& name) {
    if (const CLI::App* found = FindByName(app, name); found != nullptr) return found;
    for (const CLI::App* sub : GetSubcommands(app)) {
        if (const CLI::App* found = FindBelow(*sub, name); found != nullptr) return found;
    }
    return nullptr;
}

/// The command two levels down whose name is nearest to the word.
const CLI::App* FindNearestBelow(const CLI::App& app, const std::string& word) {
    for (const CLI::App* sub : GetSubcommands(app)) {
        std::vector<std::string> names;
        for (const CLI::App* below : GetSubcommands(*sub))
            names.push_back(below->get_name());
        const std::vector<std::string_view> views(names.begin(), names.end());
        const std::string_view nearest = kit::FindNearest(word, views);
        if (!nearest.empty()) return FindByName(*sub, std::string(nearest));
    }
    return nullptr;
}

template <class Wanted>
std::string NameNearest(const std::string& word, const std::vector<Wanted>& known) {
    const std::vector<std::string_view> views(known.begin(), known.end());
    const std::string_view nearest = kit::FindNearest(word, views);
    return nearest.empty() ? "" : fmt::format("; did you mean {}?", nearest);
}

const CLI::Option* FindOption(const CLI::App& app, const std::string& word) {
    const std::string name = word.substr(0, word.find('='));
    const auto options = app.get_options([&](const CLI::Option* option) { return option->check_name(name); });
    return options.empty() ? nullptr : options.front();
}

/// Where a command's own words begin with the name of one of its commands, the show was left out.
std::optional<std::string> DescribeMissingShow(const CLI::App& app) {
    for (const CLI::Option* option : app.get_options([](const CLI::Option* each) { return each->get_positional(); })) {
        if (option->count() == 0) continue;
        const CLI::App* const sub = FindByName(app, option->results().front());
        if (sub == nullptr) continue;
        return fmt::format("{} is missing before \"{}\": write `{}`", option->get_name(true), sub->get_name(),
                           DescribePathTo(*sub));
    }
    return std::nullopt;
}

std::string JoinNames(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::App* sub : GetSubcommands(app))
        names.push_back(sub->get_name());
    return fmt::format("{}", fmt::join(names, ", "));
}

std::string DescribeShortUsage(const CLI::App& app) {
    std::string path = DescribePathTo(app);
    for (const CLI::Option* option : app.get_options([](const CLI::Option* each) { return each->get_positional(); }))
        path += ' ' + DescribeOption(*option);
    return path;
}

std::string DescribeUnknownCommand(const CLI::App& root, const CLI::App& app, const std::string& word) {
    if (const CLI::App* below = FindBelow(app, word); below != nullptr)
        return fmt::format("\"{}\" belongs elsewhere: write `{}`", word, DescribePathTo(*below));
    std::vector<std::string> names;
    for (const CLI::App* sub : GetSubcommands(app))
        names.push_back(sub->get_name());
    const std::string nearest = NameNearest(word, names);
    const std::string opening = app.get_parent() == nullptr ? "there is no command "
                                : app.get_name() == "add"   ? "there is no edit "
                                                            : fmt::format("`{}` has no ", DescribeShortUsage(app));
    if (!nearest.empty()) return opening + kit::Quote(word) + nearest;
    if (const CLI::App* below = FindNearestBelow(app, word); below != nullptr)
        return fmt::format("{}{}; did you mean `{}`?", opening, kit::Quote(word), DescribePathTo(*below));
    if (const CLI::App* elsewhere = FindBelow(root, word); elsewhere != nullptr)
        return fmt::format("\"{}\" belongs elsewhere: write `{}`", word, DescribePathTo(*elsewhere));
    return fmt::format("{}{}: choose one of {}", opening, kit::Quote(word), JoinNames(app));
}

std::string DescribeUnknownOption(const CLI::App& chosen, const CLI::App& level, const std::string& word) {
    const std::string name = word.substr(0, word.find('='));
    if (&level != &chosen && FindOption(chosen, word) != nullptr)
        return fmt::format("{} belongs after \"{}\": write `{} {}`", name, chosen.get_name(), DescribePathTo(chosen),
                           DescribeOption(*FindOption(chosen, word)));
    const CLI::App* next = &level;
    for (const CLI::App* above = level.get_parent(); above != nullptr; next = above, above = above->get_parent()) {
        const CLI::Option* const known = FindOption(*above, word);
        if (known == nullptr || above->get_parent() == nullptr) continue;
        std::string path = DescribePathTo(*next);
        path.insert(path.size() - next->get_name().size(), DescribeOption(*known) + ' ');
        return fmt::format("{} belongs before \"{}\": write `{}`", name, next->get_name(), path);
    }
    std::vector<std::string> known;
    for (const CLI::App* app = &chosen; app != nullptr; app = app->get_parent()) {
        for (const CLI::Option* option : app->get_options([](const CLI::Option* o) { return o->nonpositional(); }))
            known.push_back(option->get_name());
        if (app == &level) break;
    }
    return fmt::format("`{}` has no option {}{}", DescribePathTo(chosen), kit::Quote(name), NameNearest(name, known));
}

/// What of the words no command on the way to the chosen one has taken.
std::optional<std::string> DescribeLeftOver(const CLI::App& root, const CLI::App& chosen) {
    const bool needsCommand = chosen.get_require_subcommand_min() > 0;
    const bool lacksCommand = !GetSubcommands(chosen).empty();
    if (lacksCommand) {
        if (const auto sentence = DescribeMissingShow(chosen)) return sentence;
    }
    for (const CLI::App* level = &chosen; level != nullptr; level = level->get_parent()) {
        for (const std::string& word : level->remaining()) {
            if (word.starts_with('-') && word.size() > 1) return DescribeUnknownOption(chosen, *level, word);
            if (level == &chosen && lacksCommand) return DescribeUnknownCommand(root, chosen, word);
            if (level != &chosen)
                return fmt::format("{} stands before \"{}\": write `{}`", kit::Quote(word), chosen.get_name(),
                                   DescribeUsage(chosen));
            return fmt::format("{} is one word too many", kit::Quote(word));
        }
    }
    if (needsCommand) return fmt::format("the command is missing: choose one of {}", JoinNames(chosen));
    return std::nullopt;
}

std::optional<std::string> DescribeMissingOptions(const CLI::App& chosen) {
    std::vector<std::string> missing;
    for (const CLI::App* level = &chosen; level != nullptr; level = level->get_parent()) {
        std::vector<std::string> here;
        for (const CLI::Option* option :
             level->get_options([](const CLI::Option* o) { return o->get_required() && o->count() == 0; }))
            here.push_back(option->get_positional() ? option->get_name(true) : DescribeOption(*option));
        missing.insert(missing.begin(), here.begin(), here.end());
    }
    if (missing.empty()) return std::nullopt;
    const std::string last = missing.back();
    missing.pop_back();
    if (missing.empty()) return last + " is missing";
    return fmt::format("{} and {} are missing", fmt::join(missing, ", "), last);
}

/// The option that a library's text begins with, and what follows.
struct NamedOption {
    const CLI::Option* option = nullptr;
    std::string rest;
};

NamedOption FindNamedOption(const CLI::App& chosen, const std::string& text) {
    for (const CLI::App* level = &chosen; level != nullptr; level = level->get_parent()) {
        for (const CLI::Option* option : level->get_options()) {
            const std::string opening = option->get_name() + ": ";
            if (text.starts_with(opening)) return {option, text.substr(opening.size())};
        }
    }
    return {};
}

}  // namespace

const CLI::App& FindChosenCommand(const CLI::App& app) {
    const CLI::App* level = &app;
    while (!level->get_subcommands().empty())
        level = level->get_subcommands().back();
    return *level;
}

void RequireShowFirst(const CLI::App& app) {
    if (const auto sentence = DescribeMissingShow(app)) throw UsageError(*sentence);
}

std::string DescribeUsageProblem(const CLI::App& app, const CLI::ParseError& problem) {
    if (dynamic_cast<const UsageError*>(&problem) != nullptr) return problem.what();
    const CLI::App& chosen = FindChosenCommand(app);
    const NamedOption named = FindNamedOption(chosen, problem.what());
    // Only the texts of our own checks are read on; those of the library never.
    if (dynamic_cast<const CLI::ValidationError*>(&problem) != nullptr && named.option != nullptr)
        return fmt::format("{} {}", named.option->get_name(), named.rest);
    if (dynamic_cast<const CLI::ArgumentMismatch*>(&problem) != nullptr && named.option != nullptr)
        return fmt::format("{} needs {} after it", named.option->get_name(), named.option->get_type_name());
    if (const auto sentence = DescribeLeftOver(app, chosen)) return *sentence;
    if (const auto sentence = DescribeMissingOptions(chosen)) return *sentence;
    return "the words do not fit together";
}

}  // namespace stage

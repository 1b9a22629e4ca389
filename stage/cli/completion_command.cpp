#include <fmt/format.h>

#include <iostream>
#include <memory>

#include "stage/cli/commands.h"
#include "stage/words/value_checks.h"

namespace {

/// The words that may follow a command: its commands and its options.
std::string ListWords(const CLI::App& command) {
    std::string words;
    const auto add = [&](const std::string& word) { words += (words.empty() ? "" : " ") + word; };
    for (const CLI::App* sub : command.get_subcommands([](const CLI::App*) { return true; }))
        add(sub->get_name());
    for (const CLI::Option* option : command.get_options([](const CLI::Option* o) { return o->nonpositional(); })) {
        for (const std::string& name : option->get_lnames())
            add("--" + name);
    }
    return words;
}

void AppendCases(std::string& script, const CLI::App& command, const std::string& path) {
    script += fmt::format("        '{}') echo '{}' ;;\n", path, ListWords(command));
    for (const CLI::App* sub : command.get_subcommands([](const CLI::App*) { return true; }))
        AppendCases(script, *sub, path + ' ' + sub->get_name());
}

/// Follows the words that are commands, whatever stands between them, and offers what may come next; files otherwise.
std::string MakeScript(const CLI::App& root) {
    std::string script =
        "_stage_words() {\n"
        "    case \"$1\" in\n";
    AppendCases(script, root, "stage");
    script +=
        "    esac\n"
        "}\n"
        "_stage() {\n"
        "    local path=stage word known i\n"
        "    for ((i = 1; i < COMP_CWORD; i++)); do\n"
        "        word=${COMP_WORDS[i]}\n"
        "        known=\" $(_stage_words \"$path\") \"\n"
        "        case \"$word\" in -*) continue ;; esac\n"
        "        case \"$known\" in *\" $word \"*) path=\"$path $word\" ;; esac\n"
        "    done\n"
        "    COMPREPLY=($(compgen -W \"$(_stage_words \"$path\")\" -- \"${COMP_WORDS[COMP_CWORD]}\"))\n"
        "}\n"
        "complete -o default -F _stage stage\n";
    return script;
}

}  // namespace

void AddCompletionCommand(CLI::App& app, int&) {
    auto shell = std::make_shared<std::string>();
    CLI::App* completion = app.add_subcommand("completion", "Prints what lets a shell complete the words of stage");
    completion->add_option("SHELL", *shell, "bash or zsh")->required()->check(stage::IsOneOf({"bash", "zsh"}));
    completion->footer(
        "For bash, put this line into ~/.bashrc, and with zsh instead of bash into ~/.zshrc:\n"
        "  source <(stage completion bash)\n"
        "\nExample:\n  stage completion bash");
    completion->callback([shell, &app] {
        // zsh reads completions written for bash once it is told to.
        if (*shell == "zsh")
            std::cout << "autoload -U +X compinit && compinit\nautoload -U +X bashcompinit && bashcompinit\n";
        std::cout << MakeScript(app);
    });
}

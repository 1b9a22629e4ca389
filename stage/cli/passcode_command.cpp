#include <fmt/format.h>
#include <termios.h>
#include <unistd.h>

#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>

#include "kit/path.h"
#include "stage/cli/commands.h"
#include "stage/show/show_directory.h"
#include "stage/web/web_access.h"
#include "stage/words/value_checks.h"

namespace {

struct PasscodeWords {
    std::string showPath;
    std::string role;
    bool removes = false;
};

/// A terminal that shows nothing of what is typed.
class SilentTerminal {
public:
    SilentTerminal() {
        if (::isatty(STDIN_FILENO) != 1 || ::tcgetattr(STDIN_FILENO, &before_) != 0) return;
        termios silent = before_;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        isSilent_ = ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &silent) == 0;
        if (isSilent_) std::cerr << "Passcode: " << std::flush;
    }
    ~SilentTerminal() {
        if (!isSilent_) return;
        ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &before_);
        std::cerr << '\n';
    }
    SilentTerminal(const SilentTerminal&) = delete;
    SilentTerminal& operator=(const SilentTerminal&) = delete;

private:
    termios before_{};
    bool isSilent_ = false;
};

std::string ReadPasscode() {
    const SilentTerminal terminal;
    std::string passcode;
    std::getline(std::cin, passcode);
    return passcode;
}

void ListRoles(const stage::WebPasscodes& passcodes) {
    for (const stage::WebRole role : {stage::WebRole::View, stage::WebRole::Operate, stage::WebRole::Edit})
        std::cout << fmt::format("{:<8} {}\n", stage::GetRoleName(role),
                                 passcodes.hashes.contains(role) ? "has a passcode" : "no passcode");
}

void ChangePasscode(const PasscodeWords& words) {
    static_cast<void>(stage::ScanShowDirectory(words.showPath));
    const std::string path = kit::path::Join(words.showPath, stage::WebPasscodes::FileName);
    stage::WebPasscodes passcodes = stage::ReadPasscodes(path);
    if (words.role.empty()) return ListRoles(passcodes);
    const stage::WebRole role = *stage::FindRole(words.role);
    if (words.removes) {
        if (passcodes.hashes.erase(role) == 0)
            throw std::runtime_error(fmt::format("\"{}\" has no passcode", words.role));
        std::cout << fmt::format("\"{}\" has no passcode any more\n", words.role);
    } else {
        stage::SetPasscode(passcodes, role, ReadPasscode());
        std::cout << fmt::format("\"{}\" has a new passcode\n", words.role);
    }
    stage::WritePasscodes(path, passcodes);
}

}  // namespace

void AddPasscodeCommand(CLI::App& app, int&) {
    auto words = std::make_shared<PasscodeWords>();
    CLI::App* command = app.add_subcommand("passcode", "Sets who may see, operate and edit through the page");
    command->add_option("SHOW", words->showPath, "The show directory")->required();
    command->add_option("ROLE", words->role, "view, operate or edit; each may what those before it may")
        ->check(stage::IsOneOf({"view", "operate", "edit"}));
    command->add_flag("--remove", words->removes, "Take the passcode away");
    command->footer(
        "\nThe passcode is read from the standard input, where a terminal does not show it. Only a hash of it is kept, "
        "in "
        "the file webPasscodes of the show. A show with a passcode asks for one on every address; without any the page "
        "is "
        "served to this computer only. A performance that runs takes it over when it is started again.\n"
        "\nExamples:\n  stage passcode myshow operate\n  stage passcode myshow view --remove");
    command->callback([words] { ChangePasscode(*words); });
}

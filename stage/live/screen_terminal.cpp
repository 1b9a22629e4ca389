#include "stage/live/screen_terminal.h"

#define NCURSES_NOMACROS 1
#include <curses.h>
#include <fcntl.h>
#include <langinfo.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "kit/utf8.h"
#include "stage/live/terminal_guard.h"

namespace stage {

namespace {

constexpr int EscapeMilliseconds = 40;
constexpr std::size_t LongestPrintedLine = 1000;
constexpr char32_t EscapeCharacter = 27;

bool IsUnset(const char* name) {
    const char* value = std::getenv(name);
    return value == nullptr || *value == '\0';
}

/// Whether the terminal takes UTF-8. Where nothing says which characters it has, as on a machine that starts the show
/// by itself, it is UTF-8 like nearly every terminal.
bool ChooseCharacters() {
    const bool isUnknown = IsUnset("LC_ALL") && IsUnset("LC_CTYPE") && IsUnset("LANG");
    if (isUnknown || std::setlocale(LC_CTYPE, "") == nullptr) std::setlocale(LC_CTYPE, "C.UTF-8");
    return std::strcmp(nl_langinfo(CODESET), "UTF-8") == 0;
}

std::string ReadCapability(const char* name) {
    // The library's own mark for a name that is none.
    const char* text = tigetstr(name);
    return text == nullptr || text == reinterpret_cast<const char*>(-1) ? "" : text;
}

std::string MakeRestoringText() {
    // First an end to whatever a drawing thread has half written.
    std::string text = "\x18";
    for (const char* name : {"sgr0", "oc", "cnorm", "rmkx", "rmcup"})
        text += ReadCapability(name);
    return text + "\r\n";
}

std::wstring ToWide(std::string_view text) {
    std::wstring wide;
    while (!text.empty()) {
        const kit::Character character = kit::ReadCharacter(text);
        wide += static_cast<wchar_t>(character.value);
        text.remove_prefix(character.bytes);
    }
    return wide;
}

ScreenKey TranslateKey(int code) {
    using Kind = ScreenKey::Kind;
    switch (code) {
        case KEY_LEFT:
            return {Kind::Left};
        case KEY_RIGHT:
            return {Kind::Right};
        case KEY_UP:
            return {Kind::Up};
        case KEY_DOWN:
            return {Kind::Down};
        case KEY_BACKSPACE:
        case KEY_DC:
            return {Kind::Backspace};
        case KEY_ENTER:
            return {Kind::Enter};
        default:
            return {Kind::Unknown};
    }
}

ScreenKey TranslateCharacter(char32_t character) {
    using Kind = ScreenKey::Kind;
    switch (character) {
        case U'\r':
        case U'\n':
            return {Kind::Enter};
        case 8:
        case 127:
            return {Kind::Backspace};
        case 3:
            // Ctrl-C does not end a show: it asks, as the key for it does.
            return {Kind::Character, U'q'};
        default:
            return {character < 0x20 ? Kind::Unknown : Kind::Character, character};
    }
}

}  // namespace

/// Standard output and standard error lead into a pipe, but for an error stream that is not the terminal.
class ScreenTerminal::Printed {
public:
    Printed() {
        std::fflush(stdout);
        std::array<int, 2> pipe{};
        if (pipe2(pipe.data(), O_CLOEXEC | O_NONBLOCK) != 0)
            throw std::runtime_error("The screen cannot be opened: no pipe can be made.");
        readEnd_ = pipe[0];
        output_ = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
        error_ = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3);
        file_ = fdopen(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3), "w");
        dup2(pipe[1], STDOUT_FILENO);
        // What is written down in a file is no trouble.
        if (isatty(STDERR_FILENO) != 0) dup2(pipe[1], STDERR_FILENO);
        close(pipe[1]);
    }
    ~Printed() {
        std::fflush(stdout);
        dup2(output_, STDOUT_FILENO);
        dup2(error_, STDERR_FILENO);
        std::fclose(file_);
        close(output_);
        close(error_);
        close(readEnd_);
    }
    Printed(const Printed&) = delete;
    Printed& operator=(const Printed&) = delete;

    /// The terminal, whatever is printed.
    [[nodiscard]] std::FILE* GetFile() const { return file_; }
    [[nodiscard]] int GetFormerError() const { return error_; }

    [[nodiscard]] std::vector<std::string> TakeLines() {
        std::array<char, 1024> bytes{};
        for (ssize_t count = 0; (count = read(readEnd_, bytes.data(), bytes.size())) > 0;)
            text_.append(bytes.data(), static_cast<std::size_t>(count));
        std::vector<std::string> lines;
        for (std::size_t end = text_.find('\n'); end != std::string::npos; end = text_.find('\n')) {
            if (const std::string line = kit::ToUtf8Line(text_.substr(0, end)); !line.empty()) lines.push_back(line);
            text_.erase(0, end + 1);
        }
        if (text_.size() > LongestPrintedLine) text_.clear();
        return lines;
    }

private:
    int readEnd_ = -1;
    int output_ = -1;
    int error_ = -1;
    std::FILE* file_ = nullptr;
    std::string text_;
};

bool ScreenTerminal::IsAvailable() {
    const char* kind = std::getenv("TERM");
    return kind != nullptr && *kind != '\0' && std::strcmp(kind, "dumb") != 0 && isatty(STDIN_FILENO) != 0 &&
           isatty(STDOUT_FILENO) != 0;
}

ScreenTerminal::ScreenTerminal() {
    isUtf8_ = ChooseCharacters();
    termios settings{};
    tcgetattr(STDIN_FILENO, &settings);
    printed_ = std::make_unique<Printed>();
    use_tioctl(TRUE);
    set_escdelay(EscapeMilliseconds);
    if (newterm(nullptr, printed_->GetFile(), stdin) == nullptr) {
        printed_.reset();
        throw std::runtime_error("The screen cannot be opened: this terminal's kind, which TERM names, is unknown.");
    }
    TerminalGuard::Arm(fileno(printed_->GetFile()), printed_->GetFormerError(), settings, MakeRestoringText());
    // No key may stop the output or put the program aside.
    raw();
    noecho();
    nonl();
    keypad(stdscr, TRUE);
    nodelay(stdscr, TRUE);
    curs_set(0);
    ChooseColours_();
}

ScreenTerminal::~ScreenTerminal() {
    endwin();
    TerminalGuard::Disarm();
    delscreen(set_term(nullptr));
    printed_.reset();
}

void ScreenTerminal::ChooseColours_() {
    hasColours_ = has_colors() && start_color() == OK && COLORS >= 8;
    if (!hasColours_) return;
    const auto define = [](ScreenStyle style, int text, int ground) {
        init_pair(static_cast<short>(static_cast<int>(style) + 1), static_cast<short>(text),
                  static_cast<short>(ground));
    };
    define(ScreenStyle::Plain, COLOR_WHITE, COLOR_BLACK);
    define(ScreenStyle::Faint, COLOR_CYAN, COLOR_BLACK);
    define(ScreenStyle::Strong, COLOR_WHITE, COLOR_BLACK);
    define(ScreenStyle::Title, COLOR_WHITE, COLOR_BLUE);
    define(ScreenStyle::Good, COLOR_GREEN, COLOR_BLACK);
    define(ScreenStyle::Warning, COLOR_YELLOW, COLOR_BLACK);
    define(ScreenStyle::Alarm, COLOR_WHITE, COLOR_RED);
    define(ScreenStyle::Lamp, COLOR_BLACK, COLOR_YELLOW);
    // Dark, whatever the terminal's own ground is.
    wbkgd(stdscr, static_cast<chtype>(AttributesOf_(ScreenStyle::Plain)) | ' ');
}

int ScreenTerminal::AttributesOf_(ScreenStyle style) const {
    chtype attributes = A_NORMAL;
    if (style == ScreenStyle::Strong || style == ScreenStyle::Warning || style == ScreenStyle::Alarm ||
        style == ScreenStyle::Title)
        attributes |= A_BOLD;
    if (hasColours_) return static_cast<int>(attributes | static_cast<chtype>(COLOR_PAIR(static_cast<int>(style) + 1)));
    if (style == ScreenStyle::Title || style == ScreenStyle::Alarm || style == ScreenStyle::Lamp)
        attributes |= A_REVERSE;
    return static_cast<int>(attributes);
}

ScreenSize ScreenTerminal::GetSize() const {
    return {getmaxy(stdscr), getmaxx(stdscr), isUtf8_};
}

void ScreenTerminal::Draw(const ScreenPicture& picture) {
    const bool isNew = !drawn_ || drawn_->GetSize() != picture.GetSize();
    if (isNew) werase(stdscr);
    for (int row = 0; row < std::min(picture.GetSize().rows, getmaxy(stdscr)); ++row) {
        if (!isNew && drawn_->GetRow(row) == picture.GetRow(row)) continue;
        wmove(stdscr, row, 0);
        wclrtoeol(stdscr);
        for (const ScreenSpan& span : picture.GetRow(row)) {
            wattrset(stdscr, AttributesOf_(span.style));
            mvwaddwstr(stdscr, row, span.column, ToWide(span.text).c_str());
        }
        wattrset(stdscr, AttributesOf_(ScreenStyle::Plain));
    }
    drawn_ = picture;
    wrefresh(stdscr);
}

void ScreenTerminal::Wait(std::chrono::milliseconds time, int wakeUp) {
    if (!pending_.empty()) return;
    std::array<pollfd, 2> awaited{{{wakeUp, POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}}};
    const int ready = poll(awaited.data(), hasInput_ ? 2 : 1, static_cast<int>(time.count()));
    const auto& input = awaited[1];
    // The terminal is gone: the show goes on without, by its other doors.
    if (ready > 0 && input.revents != 0 && (input.revents & POLLIN) == 0) hasInput_ = false;
}

std::optional<ScreenKey> ScreenTerminal::ReadKey() {
    if (!pending_.empty()) {
        const ScreenKey key = pending_.back();
        pending_.pop_back();
        return key;
    }
    wint_t code = 0;
    const int kind = wget_wch(stdscr, &code);
    if (kind == ERR) return std::nullopt;
    if (kind == KEY_CODE_YES) {
        if (code != KEY_RESIZE) return TranslateKey(static_cast<int>(code));
        drawn_.reset();
        return std::nullopt;
    }
    return code == EscapeCharacter ? ReadEscape_() : TranslateCharacter(code);
}

/// Esc, or a key whose sequence is unknown here. Taken for Esc and what follows it, such a key would stop the show.
ScreenKey ScreenTerminal::ReadEscape_() {
    const ScreenKey escape{ScreenKey::Kind::Escape};
    wint_t introducer = 0;
    const int kind = wget_wch(stdscr, &introducer);
    if (kind == ERR) return escape;
    if (kind == KEY_CODE_YES) {
        if (introducer != KEY_RESIZE) pending_.push_back(TranslateKey(static_cast<int>(introducer)));
        return escape;
    }
    const ScreenKey second =
        introducer == EscapeCharacter ? escape : TranslateCharacter(static_cast<char32_t>(introducer));
    wint_t next = 0;
    if ((introducer != '[' && introducer != 'O') || wget_wch(stdscr, &next) != OK) {
        pending_.push_back(second);
        return escape;
    }
    // Parameters, up to the letter that ends the sequence.
    while (next >= 0x20 && next < 0x40 && wget_wch(stdscr, &next) == OK) {
    }
    return {ScreenKey::Kind::Unknown};
}

bool ScreenTerminal::IsAskedToEnd() {
    return TerminalGuard::IsAskedToEnd();
}

std::vector<std::string> ScreenTerminal::TakeOutput() {
    return printed_->TakeLines();
}

}  // namespace stage

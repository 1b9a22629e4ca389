// A session of one show as a process of its own: `session_hand SHOW`. It answers each line that it reads with one line,
// "ok ..." or "no ..." and why.

#include <exception>
#include <iostream>
#include <sstream>
#include <string>

#include "stage/session/show_session.h"
#include "tests/hands/tick_of.h"

namespace {

stage::ShowSession::Options MakeOptions() {
    stage::ShowSession::Options options;
    options.hasRunningFeed = false;
    options.sendsTimeCode = false;
    options.holdWait = std::chrono::milliseconds(0);
    return options;
}

/// What the command did.
std::string Do(stage::ShowSession& session, const std::string& verb, const std::string& word) {
    if (verb == "add") session.AddEdit("2", CL::Marker(test_support::TickOf(word), word));
    if (verb == "undo") session.Undo();
    if (verb == "redo") session.Redo();
    if (verb == "recover") session.RecoverEdits();
    if (verb == "discard") session.DiscardRecoveredEdits();
    if (verb == "use") session.UseVersion(word);
    return verb == "save" ? session.Save(false) : session.GetLogVersion();
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    try {
        stage::ShowSession session(argv[1], argv[1], MakeOptions());
        std::cout << "ok " << session.GetLogVersion() << ' ' << session.GetRecoveredEdits().size() << ' '
                  << session.GetEditingProblem() << std::endl;
        for (std::string line; std::getline(std::cin, line) && line != "quit";) {
            std::istringstream words(line);
            std::string verb;
            std::string word;
            words >> verb >> word;
            try {
                const std::string done = Do(session, verb, word);
                std::cout << "ok " << done << std::endl;
            } catch (const std::exception& problem) {
                std::cout << "no " << problem.what() << std::endl;
            }
        }
    } catch (const std::exception& problem) {
        std::cout << "no " << problem.what() << std::endl;
        return 1;
    }
    return 0;
}

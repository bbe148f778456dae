// A backend for devices as CUPS has them, without a device: writes what it is sent into a file, and plays
// what a device says. The device URI says what it does: "test:", then words with a slash between.
//   stuck       takes nothing before the file "go" is there
//   connecting  takes nothing and says no records before the file "go" is there; with 2 it tells of that as
//               "socket" does, otherwise as "usb"
//   silent      says nothing
//   torn        sends its records in pieces, with garbage and half records between
//   chatty      writes messages in pieces
//   exit=N      exits with this status once it has got `after` bytes
//   signal=N    ends itself by this signal then
//   deaf        closes its standard input then
//   heir        exits with status 6 once the file "go" is there; a process of its keeps everything open
//   after=N     0 without
//   end=N       the exit status at the end
//   anew        connects once more before that
//   orphaned    is not ended where the backend is killed
//
// At the end it says what is in the files "last words" and "last record", where there are such.

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace {

constexpr const char *folder = "/tmp/device/";
constexpr int backChannel = 3;
constexpr int sideChannel = 4;
constexpr int interval = 50; // milliseconds from one record to the next

std::map<std::string, int> wordsOf(const std::string &uri) {
    std::map<std::string, int> words;
    std::istringstream text(uri.substr(uri.find(':') + 1));
    for (std::string word; std::getline(text, word, '/');) {
        const std::size_t equals = word.find('=');
        words[word.substr(0, equals)] = equals == std::string::npos ? 1 : std::stoi(word.substr(equals + 1));
    }
    return words;
}

std::string contentsOf(const std::string &name) {
    std::ostringstream text;
    text << std::ifstream(folder + name, std::ios::binary).rdbuf();
    return text.str();
}

void note(const std::string &name, const std::string &text) {
    std::ofstream(folder + name) << text;
}

void say(int fd, const std::string &text) {
    static_cast<void>(!write(fd, text.data(), text.size()));
}

void sayRecord(bool isTorn) {
    const std::string record = contentsOf("record");
    if (!isTorn) {
        say(backChannel, record);
        return;
    }
    say(backChannel, "garbage" + record.substr(0, 20));
    say(backChannel, "GDGDI" + record.substr(0, 1));
    say(backChannel, record.substr(1, 30));
    say(backChannel, record.substr(31));
}

/// Sends much else first, and ends at once: what has gone into a pipe is to be found there.
void sayLast() {
    constexpr int lines = 2000; // more than the backend reads at a time
    std::string words = contentsOf("last words");
    std::string record = contentsOf("last record");
    for (int line = 0; line < lines; ++line) {
        words.insert(0, words.empty() ? "" : "DEBUG: a line\n");
        record.insert(0, record.empty() ? "" : "garbage ");
    }
    say(STDERR_FILENO, words);
    say(backChannel, record);
}

/// How it was started, for the test to compare.
void noteStart(int argc, char **argv) {
    std::string text;
    for (int i = 0; i < argc; ++i) {
        text += argv[i] + std::string("\n");
    }
    const char *uri = std::getenv("DEVICE_URI");
    text += uri != nullptr ? uri : "";
    text += std::string("\nside channel: ") + (fcntl(sideChannel, F_GETFD) != -1 ? "open" : "closed") + "\n";
    text += std::string("user: ") + (geteuid() == 0 ? "root" : "other") + "\n";
    note("start", text);
}

/// What it was given besides, in files of their own. First of all, as what is opened here counts as well.
void noteSurroundings() {
    std::string descriptors;
    for (int number = 0; number < 1024; ++number) {
        descriptors += fcntl(number, F_GETFD) != -1 ? std::to_string(number) + " " : "";
    }
    std::string blocked;
    std::string ignored;
    sigset_t mask;
    sigprocmask(SIG_BLOCK, nullptr, &mask);
    for (int number = 1; number < NSIG; ++number) {
        struct sigaction action = {};
        sigaction(number, nullptr, &action);
        blocked += sigismember(&mask, number) == 1 ? std::to_string(number) + " " : "";
        ignored += action.sa_handler == SIG_IGN ? std::to_string(number) + " " : "";
    }
    std::string environment;
    for (char **variable = environ; *variable != nullptr; ++variable) {
        environment += *variable + std::string("\n");
    }
    note("descriptors", descriptors);
    note("signals", "blocked: " + blocked + "\nignored: " + ignored + "\n");
    note("environment", environment);
    say(sideChannel, "from the device");
}

} // namespace

int main(int argc, char **argv) {
    noteSurroundings();
    if (argc == 1) {
        std::cout << contentsOf("devices") << std::flush;
        return 0;
    }
    noteStart(argc, argv);
    signal(SIGTERM, SIG_IGN); // as CUPS's own do while they print from standard input
    std::map<std::string, int> words = wordsOf(std::getenv("DEVICE_URI"));
    if (!words.contains("orphaned")) {
        prctl(PR_SET_PDEATHSIG, SIGKILL); // a test may kill the backend while nothing is read here
    }
    if (words.contains("chatty")) {
        say(STDERR_FILENO, "STATE: +connecting-to-dev");
        usleep(20'000);
        say(STDERR_FILENO,
            "ice\nINFO: Connected.\nPAGE: 1 1\nATTR: marker-levels=1,2,3\nATTR: a=b\n"
            "STATE: +media-empty-warning,cups-waiting-for-job-completed\nSTATE: -toner-low-report\nDEBUG: and the rest");
    }
    bool isConnecting = words.contains("connecting");
    if (isConnecting) {
        signal(SIGTERM, SIG_DFL);
        say(STDERR_FILENO, "STATE: +connecting-to-device\n");
    }
    if (isConnecting && words["connecting"] == 2) {
        say(STDERR_FILENO, "STATE: -connecting-to-device\nDEBUG: Connecting to printer:9100\n");
    }
    std::ofstream printed(std::string(folder) + "printed", std::ios::binary | std::ios::app);
    std::string beginning;
    std::size_t received = 0;
    std::vector<char> block(65'536);
    while (true) {
        const bool mayGo = access("/tmp/device/go", F_OK) == 0;
        if (isConnecting && mayGo) {
            isConnecting = false;
            signal(SIGTERM, SIG_IGN);
            say(STDERR_FILENO, "STATE: -connecting-to-device\n");
        }
        if (mayGo && words.contains("heir")) {
            if (fork() == 0) {
                for (int turn = 0; turn < 400 && access(folder, F_OK) == 0; ++turn) {
                    poll(nullptr, 0, interval);
                }
            }
            return 6;
        }
        const bool isStuck = words.contains("stuck") && !mayGo;
        pollfd input{isStuck || isConnecting ? -1 : STDIN_FILENO, POLLIN, 0};
        poll(&input, 1, interval);
        if (input.revents != 0) {
            const ssize_t got = read(STDIN_FILENO, block.data(), block.size());
            if (got <= 0) {
                break;
            }
            printed.write(block.data(), got).flush();
            beginning.append(block.data(), beginning.size() < 16 ? static_cast<std::size_t>(got) : 0);
            received += static_cast<std::size_t>(got);
        }
        // A device says nothing before it has been reset to do so. One that takes nothing was before.
        if (!isConnecting && !words.contains("silent") &&
            (isStuck || beginning.starts_with("GDIC GDIREND"))) {
            sayRecord(words.contains("torn"));
        }
        if (received > 0 && received >= static_cast<std::size_t>(words["after"])) {
            if (words.contains("exit")) {
                return words["exit"];
            }
            if (words.contains("signal")) {
                signal(words["signal"], SIG_DFL);
                raise(words["signal"]);
            }
            if (words.contains("deaf")) {
                close(STDIN_FILENO);
                usleep(300'000);
                return 0;
            }
        }
    }
    if (words.contains("anew")) {
        signal(SIGTERM, SIG_DFL);
        say(STDERR_FILENO, "STATE: +connecting-to-device\n");
        usleep(300'000);
    }
    sayLast();
    return words["end"];
}

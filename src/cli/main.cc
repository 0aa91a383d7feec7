// trevixctl: stored mail compressed, indexed and searched from the command line.
#include <sys/ioctl.h>
#include <unistd.h>

#include <exception>
#include <iostream>

#include "cli/command_table.h"
#include "cli/exit_codes.h"

namespace {

std::size_t OutputColumns() {
    struct winsize size {};
    if (::isatty(STDOUT_FILENO) != 1) return 0;
    constexpr std::size_t kUsual = 80;
    return ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : kUsual;
}

}  // namespace

int main(int argc, char** argv) {
    trevix::cli::Console console(std::cout, std::cerr, ::isatty(STDERR_FILENO) == 1);
    console.out_columns = OutputColumns();
    try {
        const int exit_code = trevix::cli::RunProgram(argc, argv, console);
        std::cout.flush();
        if (std::cout.good()) return exit_code;
        // A pipe that was closed, a full disk: what was asked for did not arrive.
        return exit_code == trevix::cli::kExitDone ? trevix::cli::kExitFailed : exit_code;
    } catch (const std::exception& failure) {
        console.Complain({"internal error", failure.what(), "this is a fault of the program"});
        return trevix::cli::kExitFailed;
    }
}

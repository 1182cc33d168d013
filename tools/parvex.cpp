// parvex: command-line front end of the distortion-correction library.
#include <signal.h>
#include <stdio.h>

#include <new>

#include "calibration.h"
#include "commands.h"
#include "tool_error.h"

using namespace parvex_tool;

int main(int argc, char **argv) {
    // A closed pipe downstream should end the stream with a message, not a
    // silent signal.
    signal(SIGPIPE, SIG_IGN);
    try {
        const Options options = parseOptions(argc, argv);
        if (options.command == "help") {
            fputs(kUsage, stdout);
            return 0;
        }
        if (options.command == "demo") return runDemo(options);
        if (options.command == "info") return runInfo(options);
        if (options.command == "lens") return runLens(options);
        return runConvert(options);
    } catch (const UsageError &e) {
        fprintf(stderr, "parvex: %s\n", e.what());
        return 2;
    } catch (const ToolError &e) {
        fprintf(stderr, "parvex: %s\n", e.what());
        return 1;
    } catch (const std::bad_alloc &) {
        fprintf(stderr, "parvex: out of memory\n");
        return 1;
    } catch (const std::exception &e) {
        fprintf(stderr, "parvex: %s\n", e.what());
        return 1;
    }
}

// The command line of Panoveer Studio: the whole engine without a window.

#include "Panoveer/Services/Export/VRExportError.h"
#include "PanoveerTool/Commands.h"
#include "PanoveerTool/Exit.h"
#include "PanoveerTool/Interrupt.h"
#include "Platform/Core/Error.h"
#include "Platform/Media/LibAVMessages.h"

#include <CLI/CLI.hpp>
#include <malloc.h>

#include <iostream>
#include <new>

namespace {

// Pictures are large and come and go on many threads. Left alone, the allocator soon keeps freed ones in the heap of
// each thread, a fifth of what an 8K export needs; above this size memory goes back to the system when it is freed.
constexpr int mappedAllocationBytes = 1 << 20;

int run(int argc, char** argv) {
    using namespace panoveer;
    using namespace panoveer::tool;
    mallopt(M_MMAP_THRESHOLD, mappedAllocationBytes);
    const Interrupt interrupt;
    sendLibAVMessagesToLog();

    CLI::App program("Converts immersive, dome and flat video.", "panoveer");
    program.require_subcommand(1);
    program.set_version_flag("--version", std::string("panoveer ") + PANOVEER_VERSION);
    declareConvert(program, interrupt.token());
    declareFrame(program, interrupt.token());
    declareMasks(program, interrupt.token());
    declareTranscode(program, interrupt.token());
    declareProbe(program, interrupt.token());
    declareInspect(program);
    declarePresets(program);
    declareDoctor(program);
    declareDiagnostics(program);
    declareSample(program, interrupt.token());

    try {
        program.parse(argc, argv);
        return exitCode::done;
    } catch (const CLI::ParseError& error) {
        return program.exit(error, std::cout, std::cerr) == 0 ? exitCode::done : exitCode::wrongUsage;
    } catch (const UsageError& error) {
        std::cerr << "panoveer: " << error.what() << '\n';
        return exitCode::wrongUsage;
    } catch (const Cancelled&) {
        std::cerr << "panoveer: cancelled; nothing unfinished was left behind.\n";
        return exitCode::cancelled;
    } catch (const ToldFailure&) {
        return exitCode::failed;
    } catch (const VRExportError& error) {
        std::cerr << "panoveer: " << error.what() << '\n';
        return error.which() == VRExportError::Case::cancelledPartialSaved ? exitCode::cancelled : exitCode::failed;
    } catch (const std::bad_alloc&) {
        std::cerr << "panoveer: out of memory. Choose a smaller --size, or close other programs.\n";
        return exitCode::failed;
    } catch (const std::exception& error) {
        std::cerr << "panoveer: " << error.what() << '\n';
        return exitCode::failed;
    }
}

} // namespace

int main(int argc, char** argv) { return run(argc, argv); }

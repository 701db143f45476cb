#include "Program.h"

#include "inspect/Command.h"
#include "loopback/Command.h"
#include "recv/Command.h"
#include "sdp/Command.h"
#include "send/Command.h"

namespace talrtp::host {

Program makeProgram() {
    Program program;
    program.app =
        std::make_unique<CLI::App>("Carries H.264 over RTP with forward error correction.", "talrtp");
    CLI::App& app = *program.app;
    app.set_version_flag("--version", "talrtp " TALRTP_PROGRAM_VERSION);
    app.require_subcommand(1);
    app.get_formatter()->column_width(26);
    program.commands = {addSend(app), addRecv(app), addSdp(app), addInspect(app), addLoopback(app)};
    return program;
}

}  // namespace talrtp::host

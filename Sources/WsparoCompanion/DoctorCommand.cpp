#include "WsparoCompanion/DoctorCommand.h"

#include "OrvPlatform/BeastWebSocket.h"
#include "WsparoCompanion/DoctorFiles.h"
#include "WsparoCompanion/DoctorNetwork.h"
#include "WsparoCompanion/DoctorReport.h"
#include "WsparoCompanion/DoctorTexts.h"
#include "WsparoCompanion/ExitCode.h"
#include "WsparoCompanion/Interruptible.h"

namespace orv::companion {

namespace {

int diagnoseNetwork(const Surroundings& surroundings, const ViewerSettings& settings,
                    const std::optional<ViewerState>& state, DoctorReport& report) {
    Interruptible thread(exitCode::interrupted);
    HelpdeskAccess access(thread.executor(), surroundings.clock, settings,
                          state.value_or(ViewerState{}), usualTotalTimeout);
    BeastWebSocketConnector webSockets({access.trust(), surroundings.clock});
    DoctorNetwork network(
        {surroundings, settings, state, access, webSockets, systemProxyFor, report});
    return thread.run(network.diagnose());
}

}  // namespace

int runDoctor(const Surroundings& surroundings) {
    DoctorReport report(surroundings);
    const std::optional<ViewerSettings> settings = diagnoseSettings(surroundings, report);
    const std::optional<ViewerState> state = diagnoseState(surroundings, settings, report);
    if (settings) {
        const int status = diagnoseNetwork(surroundings, *settings, state, report);
        if (status != exitCode::success) return status;
    }
    diagnoseFolders(surroundings, report);
    if (!report.isAllWell()) return exitCode::failure;
    surroundings.out.line(surroundings.say(doctorTexts::allWell));
    return exitCode::success;
}

}  // namespace orv::companion

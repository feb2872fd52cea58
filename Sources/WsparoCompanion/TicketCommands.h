#pragma once

#include "WsparoCompanion/Arguments.h"
#include "WsparoCompanion/Surroundings.h"

namespace orv::companion {

/// "wsparo ticket new"
int openTicket(const Surroundings& surroundings, const Arguments& arguments);

/// "wsparo tickets", with and without "--follow": consultants' answers since the last look.
int showTickets(const Surroundings& surroundings, const Arguments& arguments);

}  // namespace orv::companion

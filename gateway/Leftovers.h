#pragma once

#include "gateway/Configuration.h"
#include "gateway/outbox/Outbox.h"

// Before the module starts: hands to the outbox what an earlier run has not delivered, oldest first. That is what lies in
// directories of deliveries, and files of delivering log files whose names the module will not make again. They are then
// kept or deleted as after any delivery. What belongs to no log file that delivers is named on stderr and left alone.
void HandOverLeftovers(const Configuration& configuration, Outbox& outbox);

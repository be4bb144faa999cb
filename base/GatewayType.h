#pragma once

// What kind of records an action or a trigger works on.
enum GatewayType : int {
    GATEWAY_TYPE_ANY = 0,
    GATEWAY_TYPE_EVENT = 2,
};

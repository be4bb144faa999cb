#pragma once

// How the sending of an e-mail ended.
enum EMAILSTATUS : int {
    EMAIL_SENT = 0,
    EMAIL_FAILED = 1,
};

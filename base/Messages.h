#pragma once

// Numbers of the messages that the log file service sends to the error reporter, with their levels and sources. The
// texts belong to the gateway's message catalogue.

constexpr int LEVEL_WARNING = 5;
constexpr int LEVEL_ERROR = 9;

constexpr int SOURCE_KERNEL = 3;
constexpr int SOURCE_LOG_FILE = 29; // the component number of the log file service

constexpr int MSG_PENDING_NOT_RESTORED = 138; // saved requests could not be read back (kernel, error)
constexpr int MSG_PATH_NOT_PREPARED = 303;    // the name service could not prepare a log directory (log file, error)
constexpr int MSG_NOT_CREATED = 304;          // a directory or a delivery job could not be made, with a text (warning)
constexpr int MSG_NO_UPLOAD_SERVICE = 675;    // upload asked for, the gateway has none (kernel, warning)
constexpr int MSG_NO_EMAIL_SERVICE = 676;     // e-mail asked for, the gateway has none (kernel, warning)
constexpr int MSG_UPLOAD_NOT_STARTED = 678;   // an upload could not be started (log file, error)
constexpr int MSG_EMAIL_NOT_STARTED = 679;    // an e-mail could not be started (log file, error)

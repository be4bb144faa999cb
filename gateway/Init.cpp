#include "gateway/Init.h"

#include "gateway/Console.h"
#include "gateway/Run.h"

#include <cstdio>
#include <fstream>

namespace {

constexpr const char* LOG_FILES = R"(// The log files. The items stand in this order: they are read by their place.
{
  "version": 3,
  "dateFormat": "YYYY-MM-DD",     // YYYY YY MM DD
  "timeFormat": "HH:mm:SS.sss",   // HH mm SS sss
  "fileSpecs": [
    // What is reported as {"event": ...}. Its path is put in front of the file name as it stands.
    { "type": "EFileSpec",
      "name": "KernelLog", "logPath": "logs/", "fileName": "kernel-%i.log",
      "maxFileSize": 512000,      // bytes; 0: no limit
      "numFiles": 3,              // the one being written and two older ones
      "fileFormat": 0,            // 0 plain text, 1 comma-separated, 2 HTML
      "unicode": 0,               // 1 UTF-16, 0 8-bit
      "deliveryMode": 1,          // 1 none, 2 upload, 3 e-mail
      "keepCopy": 0,              // 1: delivered files are kept in logPath
      "mailName": "" },

    // {"alarm": ..., "log": "Alarms"}
    { "type": "EFileSpec",
      "name": "Alarms", "logPath": "logs", "fileName": "alarms-%i.csv",
      "maxFileSize": 102400, "numFiles": 5,
      "fileFormat": 1, "unicode": 0, "deliveryMode": 1, "keepCopy": 0, "mailName": "" },

    // {"snapshot": [...], "log": "Trend"}, uploaded by the schedule in gateway.json
    { "type": "EFileSpec",
      "name": "Trend", "logPath": "sent", "fileName": "trend-%Y%m%d-%i.csv",
      "maxFileSize": 1000000, "numFiles": 10,
      "fileFormat": 1, "unicode": 0, "deliveryMode": 2, "keepCopy": 1, "mailName": "" }
  ]
}
)";

constexpr const char* GATEWAY = R"(// What the gateway itself needs. Every member may be left out.
{
  // The headings of the columns, in your language.
  "headings": { "date": "Date", "time": "Time", "name": "Name", "text": "Text", "source": "Source",
                "detail": "Detail", "active": "Active", "acknowledged": "Acknowledged",
                "alarmNumber": "Alarm number", "value": "Value" },

  // Identifiers: log files named "name@7" belong to identifier 7, and may have an upload target of their own.
  "identifiers": [],

  // Uploads (deliveryMode 2). Without a "url" they go into the local directory.
  "upload": {
    // "url": "sftp://archive.example.com/logs/", "user": "gateway", "passwordEnv": "UPLOAD_PASSWORD",
    "directory": "uploads"
  },

  // E-mails (deliveryMode 3). Without a "server" they become files in the outbox.
  // "mail": {
  //   "server": "smtps://mail.example.com", "user": "gateway", "passwordFile": "/etc/kvgateway/mail-password",
  //   "from": "gateway@example.com", "outbox": "outbox",
  //   "definitions": [
  //     { "name": "daily", "to": ["ops@example.com"], "subject": "Alarms", "text": "The alarms of the day." }
  //   ]
  // },

  // What is done again and again: "every" ("30s", "15m", "2h", "1d"), or "at" a time of day.
  "schedule": [
    { "log": "Trend", "action": "DoLogDelivery", "every": "15m" },
    { "log": "Alarms", "action": "DoRestartLogFile", "at": "00:00" }
  ]
}
)";

} // namespace

int Init(const std::filesystem::path& directory) {
    const std::pair<std::filesystem::path, const char*> files[] = {{directory / "kvLogFile.json", LOG_FILES},
                                                                   {directory / "gateway.json", GATEWAY}};
    std::error_code error;
    std::filesystem::create_directories(directory, error);
    for (const auto& [path, text] : files) {
        if (std::filesystem::exists(path)) {
            Console::Say(path.string() + " is there already; nothing was written");
            return EXIT_NOT_DONE;
        }
    }
    for (const auto& [path, text] : files) {
        std::ofstream file(path, std::ios::binary);
        if (!(file << text).flush()) {
            Console::Say(path.string() + " cannot be written");
            return EXIT_NOT_DONE;
        }
        std::printf("%s\n", path.c_str());
    }
    return EXIT_WELL;
}

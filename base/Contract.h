#pragma once

#include <cstdint>

// What the log file service and the gateway have to agree on, besides the interfaces and the messages.

// The kinds of requests. Files of saved requests contain the numbers: never change them.
enum ActionType : std::int32_t {
    ACTION_LOG_ALARM = 0,
    ACTION_LOG_EVENT = 1,
    ACTION_LOG_SNAPSHOT = 2,
    ACTION_DELIVERY = 3,
    ACTION_RESTART_FILE = 4,
};

constexpr const wchar_t* ACTION_NAME_SNAPSHOT = L"DoLogSnapShotToFile";
constexpr const wchar_t* ACTION_NAME_ALARM = L"DoLogAlarmToFile";
constexpr const wchar_t* ACTION_NAME_EVENT = L"DoLogEventToFile";
constexpr const wchar_t* ACTION_NAME_DELIVERY = L"DoLogDelivery";
constexpr const wchar_t* ACTION_NAME_RESTART = L"DoRestartLogFile";

struct ActionName {
    const wchar_t* m_pszName;
    ActionType m_Action;
};

// The actions that others may ask for, in the order of their registration.
constexpr ActionName ACTION_NAMES[] = {
    {ACTION_NAME_SNAPSHOT, ACTION_LOG_SNAPSHOT}, {ACTION_NAME_ALARM, ACTION_LOG_ALARM},
    {ACTION_NAME_EVENT, ACTION_LOG_EVENT},       {ACTION_NAME_DELIVERY, ACTION_DELIVERY},
    {ACTION_NAME_RESTART, ACTION_RESTART_FILE},
};

constexpr int QUEUE_LIMIT = 512; // requests that may wait in the service; a further one is dropped

// Operations of IKernelService::WarmRestart. WR_FORGET, for a restart that is called off, and WR_DISCARD, for the time
// after one, both remove the saved requests.
enum WarmRestartOperation : std::int32_t { WR_FORGET = 0, WR_SAVE = 1, WR_DISCARD = 2, WR_SECTIONS = 3 };

// Settings of a log file.
enum FileFormat : int { FORMAT_PLAIN_TEXT = 0, FORMAT_COMMA_SEPARATED = 1, FORMAT_HTML = 2 };
enum DeliveryMode : int { DELIVERY_NONE = 1, DELIVERY_UPLOAD = 2, DELIVERY_EMAIL = 3 };
constexpr int UNICODE_UTF16 = 1; // any other number: 8 bits

// The log file that events are written to. When none is configured the service makes one of a single file, in UTF-16
// plain text. In a configured file name KERNEL_WORD_INSTEAD replaces KERNEL_WORD.
constexpr const wchar_t* KERNEL_LOG_NAME = L"KernelLog";
constexpr const wchar_t* KERNEL_LOG_FILE = L"Kavro.log";
constexpr int KERNEL_LOG_SIZE = 512000; // bytes
constexpr int KERNEL_LOG_FILES = 1;
constexpr const wchar_t* KERNEL_WORD = L"EKernel";
constexpr const wchar_t* KERNEL_WORD_INSTEAD = L"Kavro";

// Log files that deliver are written here. A job moves them into a subdirectory, named JOB_DIRECTORY and a number.
constexpr const wchar_t* SPOOL_DIRECTORY = L"./Spool/";
constexpr const wchar_t* JOB_DIRECTORY = L"$tmp";

// What ends the headings of an HTML page, and what ends every row.
constexpr const wchar_t* HTML_HEAD_END = L"</THEAD>\n<TBODY>\n";
constexpr const wchar_t* HTML_ROW_END = L"</TR>\n";

// String numbers of the column headings: date and time, then the other cells of an alarm row.
constexpr unsigned long HEADING_DATE = 956;
constexpr unsigned long HEADING_TIME = 957;
constexpr unsigned long HEADING_ALARM_FIRST = 958;
constexpr unsigned long HEADING_ALARM_LAST = 965;

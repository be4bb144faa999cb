#pragma once

#include <cstdint>

// The kinds of requests. The numbers stand in saved requests and never change.
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

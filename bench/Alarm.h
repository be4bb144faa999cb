#pragma once

#include "base/EONEVENTSTRUCT.h"

// An alarm with texts of usual lengths.
inline EONEVENTSTRUCT Alarm() {
    EONEVENTSTRUCT record;
    record.m_TimeStamp.m_nSeconds = 1706706309;
    record.m_pszName = L"Boiler 2 feed pump";
    record.m_pszText = L"Pressure above the upper limit";
    record.m_pszSource = L"Controller 17";
    record.m_pszDetail = L"Hall 3, line B, checked every 250 ms";
    record.m_wState = EONEVENTSTRUCT::STATE_ACTIVE;
    record.m_nAlarmNumber = 4711;
    record.m_Value.SetDouble(12.75);
    return record;
}

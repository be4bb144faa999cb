#include "service/ELogFile.h"

#include "base/EONEVENTSTRUCT.h"
#include "base/ETime.h"
#include "base/INameService.h"
#include "config/EFileSpec.h"
#include "intake/ELogInfo.h"

#include <algorithm>
#include <iterator>

namespace {

constexpr std::int32_t CODE_NO_VALUE = 274; // a snapshot record with this code gets an empty cell
constexpr const wchar_t* BAD_VALUE = L"????";

// The first row of a file specification decides its headings and title.
void SetHeadings(EFileSpec* spec, const EStringArray& headings, const EString& title) {
    if (!spec->m_bHeadersSet) {
        spec->m_Headers.Copy(headings);
        spec->m_Title = title;
        spec->m_bHeadersSet = true;
    }
}

bool HasPrefix(const EONEVENTSTRUCT& record) {
    return std::any_of(std::begin(record.m_nPrefixNumbers), std::end(record.m_nPrefixNumbers),
                       [](std::int32_t number) { return number != 0; });
}

void FillSnapShotCell(const EONEVENTSTRUCT& record, EString& cell) {
    if (record.m_nCode == CODE_NO_VALUE) {
        return;
    }
    const std::uint32_t quality = record.m_Value.GetQuality();
    if (quality == CDataValue::QUALITY_BAD || quality == CDataValue::QUALITY_UNCERTAIN) {
        cell = BAD_VALUE;
        return;
    }
    record.m_Value.GetString(cell, 0, 0, 0);
}

// Tells the name service every name before it is used. The row gets the name as it was reported.
void ParseRecordName(INameService* service, const EONEVENTSTRUCT& record) {
    if (service != nullptr) {
        int id = -1;
        service->ParseNameText(OrEmpty(record.m_pszName), &id);
    }
}

} // namespace

EResult ELogFile::ProcessLogFile(ELogInfo* info) {
    if (info == nullptr) {
        return RC_NO_RECORD;
    }
    const EONEVENTSTRUCT* first = info->FirstEvent();
    switch (info->m_Action) {
    case ACTION_LOG_ALARM:
        if (first != nullptr) {
            ProcessAlarm(info->m_pFileSpec, *first);
        }
        return RC_OK;
    case ACTION_LOG_EVENT:
        if (first != nullptr) {
            ProcessEvent(info->m_pFileSpec, *first);
        }
        return RC_OK;
    case ACTION_LOG_SNAPSHOT:
        ProcessSnapShot(info);
        return RC_OK;
    case ACTION_DELIVERY:
        return ProcessDelivery(info);
    case ACTION_RESTART_FILE:
        RestartFile(info->m_pFileSpec);
        return RC_OK;
    }
    return RC_OK; // an unknown action, from a damaged or newer file of saved requests
}

ETimeStamp ELogFile::GetEventTimeStamp(const EONEVENTSTRUCT* record, const CDataValue* value) {
    return record->m_TimeStamp.IsSet() ? record->m_TimeStamp : value->GetTimestamp();
}

EStringArray& ELogFile::NewRow() {
    m_Row.SetSize(0, -1);
    return m_Row;
}

void ELogFile::AppendDateAndTime(const ETimeStamp& stamp, EStringArray& row) {
    m_RowTime.SetStamp(stamp);
    FormatDateStr(m_RowTime, row.Add());
    FormatTimeStr(m_RowTime, row.Add());
}

void ELogFile::ProcessAlarm(EFileSpec* spec, const EONEVENTSTRUCT& record) {
    EStringArray& row = NewRow();
    AppendDateAndTime(record.m_TimeStamp, row);
    ParseRecordName(m_pNameService, record);
    for (const wchar_t* text : {record.m_pszName, record.m_pszText, record.m_pszSource, record.m_pszDetail}) {
        row.Add() = text;
    }
    row.Add() = (record.m_wState & EONEVENTSTRUCT::STATE_ACTIVE) != 0 ? L"Active" : L"Not Active";
    row.Add() = (record.m_wState & EONEVENTSTRUCT::STATE_ACKED) != 0 ? L"ACKED" : L"Not ACKED";
    CDataValue number;
    number.SetInteger(record.m_nAlarmNumber);
    number.GetString(row.Add(), 0, 0, 0);
    record.m_Value.GetString(row.Add(), 0, 0, 0);

    SetHeadings(spec, m_AlarmHeaders, m_AlarmTitle);
    WriteToFile(spec, &row);
}

void ELogFile::ProcessEvent(EFileSpec* spec, const EONEVENTSTRUCT& record) {
    m_RowTime.SetStamp(record.m_TimeStamp);
    EString date;
    EString clock;
    FormatDateStr(m_RowTime, date);
    FormatTimeStr(m_RowTime, clock);
    const wchar_t* dateText = date;
    const wchar_t* clockText = clock;

    EStringArray& row = NewRow();
    EString& cell = row.Add();
    if (HasPrefix(record)) {
        const auto& numbers = record.m_nPrefixNumbers;
        cell.Format(L"[%2d, %2d, %2d, %3d] %s %s %s %s: %s", numbers[0], numbers[1], numbers[2], numbers[3], dateText,
                    clockText, record.m_pszSource, record.m_pszName, record.m_pszText);
    } else {
        cell.Format(L"%s %s %s %s: %s", dateText, clockText, record.m_pszSource, record.m_pszName, record.m_pszText);
    }

    SetHeadings(spec, m_EventHeaders, m_EventTitle);
    WriteToFile(spec, &row);
}

void ELogFile::ProcessSnapShot(ELogInfo* info) {
    EFileSpec* spec = info->m_pFileSpec;
    const bool isFirst = !spec->m_bHeadersSet;
    EStringArray headings;
    if (isFirst) {
        headings.Copy(m_SnapShotHeaders);
    }
    EStringArray& row = NewRow();
    for (std::uint32_t i = 0; i < info->m_nEventCount; ++i) {
        const EONEVENTSTRUCT& record = info->m_pEvents[i];
        ParseRecordName(m_pNameService, record);
        if (isFirst) {
            headings.Add() = record.m_pszName;
        }
        if (i == 0) {
            AppendDateAndTime(GetEventTimeStamp(&record, &record.m_Value), row);
        }
        FillSnapShotCell(record, row.Add());
    }
    SetHeadings(spec, headings, m_SnapShotTitle);
    if (info->m_nEventCount > 0) {
        WriteToFile(spec, &row);
    }
}

#pragma once

#include "tests/ServiceFixture.h"

#include <map>

// A service whose requests a test hands straight to processing, and what is then on disk.
class LogFilesTest : public ServiceTest {
protected:
    using Files = std::map<std::string, std::string>; // path to content

    EResult Process(ActionType action, const EONEVENTSTRUCT* records = nullptr, unsigned long count = 1,
                    const wchar_t* name = L"Log") {
        ELogInfo request(Spec(name), action, count, records);
        return m_pService->ProcessLogFile(&request);
    }

    // Ends the service and begins another one, with the files as they are.
    void StartAnew(const std::vector<std::string>& specs) {
        End();
        Make();
        Configure(specs);
    }

    // The same, without files, and with a heading line of "H\n" and rows of one cell: lengths that a test can count.
    void StartColumn(const SpecItems& spec) {
        std::filesystem::remove_all("logs");
        StartAnew({spec});
        Spec()->m_Headers.SetAtGrow(0, L"H");
        Spec()->m_bHeadersSet = true;
    }
    void WriteRow(const std::string& text) {
        EStringArray row;
        row.SetAtGrow(0, Wide(text));
        m_pService->WriteToFile(Spec(), &row);
    }

    static Files Found() {
        Files files;
        for (const std::string& path : Workplace::Tree()) {
            if (path.back() != '/') {
                files[path] = ReadWhole(path);
            }
        }
        return files;
    }
};

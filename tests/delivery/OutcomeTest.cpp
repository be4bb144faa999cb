// What a delivery leaves on disk, in the service and with the sending services, at every outcome.

#include "tests/delivery/DeliveryFixture.h"

#include <algorithm>

namespace {

struct Outcome {
    const char* m_pszName;
    TestNotices::When m_When = TestNotices::When::Later;
    std::set<int> m_Refused{}; // the sendings that are not started
    bool m_bDefinition = true; // the e-mail definition exists
    bool m_bRecord = true;     // the e-mail service gives a record

    friend std::ostream& operator<<(std::ostream& out, const Outcome& outcome) { return out << outcome.m_pszName; }
};

const std::vector<Outcome> BY_UPLOAD{
    {"Inside", TestNotices::When::Inside},      {"Later"},
    {"Twice", TestNotices::When::Twice},        {"Never", TestNotices::When::Never},
    {"Refused", TestNotices::When::Later, {0}},
};
const std::vector<Outcome> BY_EMAIL{
    {"Inside", TestNotices::When::Inside},
    {"Later"},
    {"OutOfOrder", TestNotices::When::OutOfOrder},
    {"Twice", TestNotices::When::Twice},
    {"Never", TestNotices::When::Never},
    {"Refused", TestNotices::When::Later, {0, 1}},
    {"FirstRefused", TestNotices::When::Later, {0}},
    {"FirstRefusedInside", TestNotices::When::Inside, {0}},
    {"LastRefused", TestNotices::When::Inside, {1}},
    {"NoDefinition", TestNotices::When::Later, {}, false},
    {"NoRecord", TestNotices::When::Later, {}, true, false},
};

using Case = std::tuple<int, int, int, Outcome>; // delivery mode, number of files, copies kept, outcome

class DeliveryOutcomeTest : public DeliveryTest, public testing::WithParamInterface<Case> {
protected:
    DeliveryOutcomeTest() {
        Configure({SpecItems{.m_nDelivery = m_nMode, .m_nKeepCopy = m_nKept, .m_Mail = "Mail"}});
        if (m_Outcome.m_bDefinition) {
            m_Mail.m_Definitions["Mail"] = ";old";
        }
        m_Mail.m_bGivesRecords = m_Outcome.m_bRecord;
        m_Mail.m_RefusedSends = m_Outcome.m_Refused;
        m_Upload.m_bRefuses = !m_Outcome.m_Refused.empty();
        m_Mail.m_Notices.m_When = m_Upload.m_Notices.m_When = m_Outcome.m_When;
        std::filesystem::create_directory("logs");
        WriteWhole("logs/log-0.csv", "older");
        m_Before = m_Done = Contents();
        MakeFiles();
    }

    // The files of the set, the current one first, each with a row of its own.
    void MakeFiles() {
        for (int i = 0; i < m_nFiles; ++i) {
            if (i > 0) {
                Process(Spec(), ACTION_RESTART_FILE, nullptr);
            }
            Row(Spec(), i == 0 ? L"first" : L"second");
        }
        for (int i = 0; i < m_nFiles; ++i) {
            const std::string name = "log-" + std::to_string(i) + ".csv";
            m_Files.emplace_back(name, ReadWhole("Spool/" + name));
            if (m_nKept != 0) {
                m_Done["logs/" + name] = m_Files.back().second;
            }
        }
    }

    // The sendings that are due to be started, or to be refused: each by the number of files that it carries.
    std::vector<int> Due(bool refused) const {
        std::vector<int> due;
        const bool possible = m_Outcome.m_bDefinition && m_Outcome.m_bRecord;
        for (int i = m_bMail ? 0 : std::max(m_nFiles - 1, 0); possible && i < m_nFiles; ++i) {
            if (refused == (m_Outcome.m_Refused.count(m_bMail ? i : 0) != 0)) {
                due.push_back(i + 1);
            }
        }
        return due;
    }

    void CheckSendings() {
        std::vector<std::pair<std::string, std::map<std::string, std::string>>> sent; // paths, bytes by path
        for (const SentMail& mail : m_Mail.m_Sent) {
            ASSERT_EQ(mail.m_Attachments.substr(0, 4), ";old");
            sent.emplace_back(mail.m_Attachments.substr(4), mail.m_Contents);
        }
        for (const Upload& upload : m_Upload.m_Uploads) {
            sent.emplace_back("", upload.m_Contents);
            for (const std::string& path : upload.m_Paths) {
                sent.back().first += ";" + path;
            }
        }
        const std::vector<int> due = Due(false);
        ASSERT_EQ(sent.size(), due.size());
        for (std::size_t i = 0; i < due.size(); ++i) {
            const std::string directory = sent[i].first.substr(1, sent[i].first.find("log-") - 1);
            EXPECT_TRUE(directory.starts_with("./") && IsJobDirectory(directory.substr(2))) << directory;
            std::string paths;
            for (int j = 0; j < due[i]; ++j) {
                const auto& [name, bytes] = m_Files[static_cast<std::size_t>(j)];
                paths += ";" + directory + name;
                EXPECT_EQ(sent[i].second.at(directory + name), bytes);
            }
            EXPECT_EQ(sent[i].first, paths);
        }
    }

    // While the job waits its files stand in its directory, and nothing has come into the log directory.
    void CheckWaiting() {
        EXPECT_EQ(Jobs(), 1);
        const auto contents = Contents();
        const auto directory = std::find_if(contents.begin(), contents.end(),
                                            [](const auto& entry) { return IsJobDirectory(entry.first); });
        ASSERT_NE(directory, contents.end());
        auto expected = m_Before;
        expected[directory->first];
        for (const auto& [name, bytes] : m_Files) {
            expected[directory->first + name] = bytes;
        }
        EXPECT_EQ(contents, expected);
    }

    const int m_nMode = std::get<0>(GetParam());
    const bool m_bMail = m_nMode == DELIVERY_EMAIL;
    const int m_nFiles = std::get<1>(GetParam());
    const int m_nKept = std::get<2>(GetParam());
    const Outcome& m_Outcome = std::get<3>(GetParam());
    TestEMail& m_Mail = m_Kernel.m_EMail;
    TestUpload& m_Upload = m_Kernel.m_Upload;
    std::vector<std::pair<std::string, std::string>> m_Files; // names and bytes of the set
    std::map<std::string, std::string> m_Before;              // the directories without the files
    std::map<std::string, std::string> m_Done;                // and when the job is done
};

TEST_P(DeliveryOutcomeTest, FilesServiceAndMessages) {
    const auto definitions = m_Mail.m_Definitions;
    const std::size_t started = Due(false).size();
    EXPECT_EQ(Deliver(Spec()), m_bMail && started < m_Files.size() ? RC_MISSING : RC_OK);
    CheckSendings();
    EXPECT_EQ(m_Mail.m_Definitions, definitions);
    EXPECT_EQ(m_Mail.m_nRecords, 0);
    EXPECT_EQ(m_Kernel.m_Reporter.Messages(),
              std::vector<ReportedMessage>(Due(true).size(), {9, 29, m_bMail ? 679 : 678, ""}));

    if (started > 0 && m_Outcome.m_When != When::Inside) {
        CheckWaiting();
        GiveNotices();
    }
    if (started > 0 && m_Outcome.m_When == When::Never) {
        CheckWaiting();
        Row(Spec());
        End(); // what is still under way is deleted, whatever the configuration keeps
        EXPECT_EQ(Contents(), m_Before);
        return;
    }
    EXPECT_EQ(Jobs(), 0);
    EXPECT_EQ(Contents(), m_Done);

    EXPECT_EQ(Deliver(Spec()), RC_OK); // there is nothing to deliver any more
    EXPECT_EQ(m_Mail.m_Sent.size() + m_Upload.m_Uploads.size(), started);
    EXPECT_EQ(Contents(), m_Done);
    End();
    EXPECT_EQ(Contents(), m_Done);
}

std::string CaseName(const testing::TestParamInfo<Case>& info) {
    const auto& [mode, files, kept, outcome] = info.param;
    return std::string(outcome.m_pszName) + "_" + std::to_string(files) + (kept != 0 ? "Kept" : "Deleted");
}

const auto FILES = testing::Values(0, 1, 2);
const auto KEPT = testing::Values(0, 1);
INSTANTIATE_TEST_SUITE_P(Upload, DeliveryOutcomeTest,
                         testing::Combine(testing::Values(DELIVERY_UPLOAD), FILES, KEPT, testing::ValuesIn(BY_UPLOAD)),
                         CaseName);
INSTANTIATE_TEST_SUITE_P(EMail, DeliveryOutcomeTest,
                         testing::Combine(testing::Values(DELIVERY_EMAIL), FILES, KEPT, testing::ValuesIn(BY_EMAIL)),
                         CaseName);

} // namespace

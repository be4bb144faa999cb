// What a delivery leaves on disk, in the service and with the sending services, at every outcome.

#include "tests/delivery/DeliveryFixture.h"

namespace {

using When = TestNotices::When;

struct Outcome {
    const char* m_pszName;
    When m_When = When::Later;
    std::set<int> m_Refused{}; // the sendings that are not started
    bool m_bDefinition = true; // the e-mail definition exists
    bool m_bRecord = true;     // the e-mail service gives a record

    friend std::ostream& operator<<(std::ostream& out, const Outcome& outcome) { return out << outcome.m_pszName; }
};

// clang-format off
const std::vector<Outcome> BY_UPLOAD{
    {"Inside", When::Inside}, {"Later"}, {"Twice", When::Twice}, {"Never", When::Never}, {"Refused", When::Later, {0}}};
const std::vector<Outcome> BY_EMAIL{
    {"Inside", When::Inside}, {"Later"}, {"Twice", When::Twice}, {"Never", When::Never},
    {"OutOfOrder", When::OutOfOrder}, {"Refused", When::Later, {0, 1}}, {"FirstRefused", When::Later, {0}},
    {"FirstRefusedInside", When::Inside, {0}}, {"LastRefused", When::Inside, {1}},
    {"NoDefinition", When::Later, {}, false}, {"NoRecord", When::Later, {}, true, false}};
// clang-format on

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
        m_Before = m_Waiting = m_Done = OnDisk();
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
        m_Waiting["JOB/"] = "";
        for (int i = 0; i < m_nFiles; ++i) {
            const std::string name = "log-" + std::to_string(i) + ".csv";
            const std::string bytes = m_Waiting["JOB/" + name] = ReadWhole("Spool/" + name);
            if (m_nKept != 0) {
                m_Done["logs/" + name] = bytes;
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

    // What is due to be sent, and what has been: the list of paths, then the bytes of each.
    std::vector<std::string> DueTexts() const {
        std::vector<std::string> texts;
        for (const int files : Due(false)) {
            std::string contents;
            texts.emplace_back(m_bMail ? ";old" : "");
            for (int i = 0; i < files; ++i) {
                const std::string path = "JOB/log-" + std::to_string(i) + ".csv";
                texts.back() += ";./" + path;
                contents += "\n./" + path + '\n' + m_Waiting.at(path);
            }
            texts.back() += contents;
        }
        return texts;
    }
    std::vector<std::string> SentTexts() const {
        std::vector<std::string> texts;
        const auto add = [&](std::string text, const Contents& contents) {
            for (const auto& [path, bytes] : contents) {
                text += path.starts_with("./") ? '\n' + path + '\n' + bytes : "";
            }
            texts.push_back(Known(text));
        };
        for (const SentMail& mail : m_Mail.m_Sent) {
            add(mail.m_Attachments, mail.m_Contents);
        }
        for (const Upload& upload : m_Upload.m_Uploads) {
            std::string paths;
            for (const std::string& path : upload.m_Paths) {
                paths += ';' + path;
            }
            add(paths, upload.m_Contents);
        }
        return texts;
    }

    const int m_nMode = std::get<0>(GetParam());
    const bool m_bMail = m_nMode == DELIVERY_EMAIL;
    const int m_nFiles = std::get<1>(GetParam());
    const int m_nKept = std::get<2>(GetParam());
    const Outcome& m_Outcome = std::get<3>(GetParam());
    TestEMail& m_Mail = m_Kernel.m_EMail;
    TestUpload& m_Upload = m_Kernel.m_Upload;
    Contents m_Before;  // the disk without the files of the set,
    Contents m_Waiting; // while the job waits,
    Contents m_Done;    // and when it is done
};

TEST_P(DeliveryOutcomeTest, FilesServiceAndMessages) {
    const auto definitions = m_Mail.m_Definitions;
    const int started = static_cast<int>(Due(false).size());
    EXPECT_EQ(Deliver(Spec()), m_bMail && started < m_nFiles ? RC_MISSING : RC_OK);
    EXPECT_EQ(SentTexts(), DueTexts());
    EXPECT_EQ(m_Mail.m_Definitions, definitions);
    EXPECT_EQ(m_Mail.m_nRecords, 0);
    EXPECT_EQ(m_Kernel.m_Reporter.Messages(),
              std::vector<ReportedMessage>(Due(true).size(), {9, 29, m_bMail ? 679 : 678, ""}));

    const bool waits = started > 0 && m_Outcome.m_When != When::Inside;
    EXPECT_EQ(Jobs(), waits ? 1 : 0);
    EXPECT_EQ(OnDisk(), waits ? m_Waiting : m_Done); // its files in its directory, and none in the log directory yet
    GiveNotices();
    if (started > 0 && m_Outcome.m_When == When::Never) {
        EXPECT_EQ(OnDisk(), m_Waiting);
        Row(Spec());
        End(); // what is still under way is deleted, whatever the configuration keeps
        EXPECT_EQ(OnDisk(), m_Before);
        return;
    }
    EXPECT_EQ(Jobs(), 0);
    EXPECT_EQ(OnDisk(), m_Done);
    EXPECT_EQ(Deliver(Spec()), RC_OK); // there is nothing to deliver any more
    EXPECT_EQ(SentTexts(), DueTexts());
    End();
    EXPECT_EQ(OnDisk(), m_Done);
}

std::string CaseName(const testing::TestParamInfo<Case>& info) {
    const auto& [mode, files, kept, outcome] = info.param;
    return std::string(outcome.m_pszName) + "_" + std::to_string(files) + (kept != 0 ? "Kept" : "Deleted");
}

auto Cases(int mode, const std::vector<Outcome>& outcomes) {
    return testing::Combine(testing::Values(mode), testing::Values(0, 1, 2), testing::Values(0, 1),
                            testing::ValuesIn(outcomes));
}
INSTANTIATE_TEST_SUITE_P(Upload, DeliveryOutcomeTest, Cases(DELIVERY_UPLOAD, BY_UPLOAD), CaseName);
INSTANTIATE_TEST_SUITE_P(EMail, DeliveryOutcomeTest, Cases(DELIVERY_EMAIL, BY_EMAIL), CaseName);

} // namespace

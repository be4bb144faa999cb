#include "gateway/Configuration.h"
#include "gateway/JsonObject.h"
#include "tests/gateway/Program.h"

#include <gmock/gmock.h>

namespace fs = std::filesystem;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

class CheckTest : public testing::Test {
protected:
    CheckTest() : m_Place({}) {
        setenv("TZ", "UTC", 1);
        tzset();
    }

    // The configuration without a fault that is kept beside this file, but with a text in place of another. "^" marks a
    // place in it, and is left out. Returns the place: "FILE:LINE:COLUMN".
    static std::string WriteWith(const std::string& from, const std::string& to) {
        std::string place;
        for (const std::string file : {"config/kvLogFile.json", "config/gateway.json"}) {
            std::string text = ReadWhole(KVTEST_SOURCES + file);
            if (const std::size_t at = text.find(from); at != std::string::npos && place.empty()) {
                text.replace(at, from.size(), to);
                const std::size_t mark = text.find('^');
                const std::vector<std::string> before = Lines(text.substr(0, mark) + '\n');
                place = file + ':' + std::to_string(before.size()) + ':' + std::to_string(before.back().size() + 1);
                text.erase(mark, 1);
            }
            WriteWhole(file, text);
        }
        return place;
    }

    Place m_Place;
};

} // namespace

TEST_F(CheckTest, NamesThePlaceOfEveryFaultAndDoubt) {
    const auto faults = Table("config/faults.txt");
    ASSERT_GT(faults.size(), 50U);
    for (const auto& fault : faults) {
        const std::string place = WriteWith(fault.at(0), fault.at(1));
        Findings findings;
        Configuration::Load("config", findings);
        EXPECT_THAT(findings.Lines(), Contains(AllOf(StartsWith(place + ": "), HasSubstr(fault.at(2))))) << fault.at(1);
    }
}

TEST_F(CheckTest, SaysEverythingAtOnceAndRunRefusesIt) {
    WriteWith("3, \"fileFormat\": 1, \"unicode\": 0", "-3, \"fileFormat\": 1, \"unicode\": 5^");
    WriteWhole("config/gateway.json", "{ \"schedul\": [] }");
    Program check = Program::Gateway("check --config config");
    EXPECT_EQ(check.Wait(), 1);
    EXPECT_THAT(Lines(check.Errors()),
                ElementsAre(HasSubstr("kvLogFile.json:7:19: "), HasSubstr("kvLogFile.json:7:51: warning: "),
                            HasSubstr("kvLogFile.json:8:23: "), HasSubstr("kvLogFile.json:9:36: "),
                            HasSubstr("kvLogFile.json:11:23: "), HasSubstr("gateway.json:1:3: ")));
    EXPECT_EQ(check.Output(), "");
    Program run = Program::Run();
    EXPECT_EQ(run.Wait(), 2);
    EXPECT_THAT(run.Errors(), HasSubstr(check.Errors()));
    EXPECT_FALSE(fs::exists("Kavro.log") || fs::exists("config/kvgateway.work"));

    // It may be left out, but a link that leads nowhere is a mistake.
    fs::remove("config/gateway.json");
    fs::create_symlink("../etc/gateway.json", "config/gateway.json");
    Program other = Program::Gateway("check --config config");
    EXPECT_EQ(other.Wait(), 1);
    EXPECT_THAT(other.Errors(), HasSubstr("gateway.json: cannot be read: No such file or directory\n"));
}

#ifdef KV_WITHOUT_MAIL

TEST_F(CheckTest, RefusesWhatItCannotSend) {
    WriteWhole("config/gateway.json", "{ \"upload\": {},\n\"mail\": {}}");
    Program check = Program::Gateway("check --config config");
    EXPECT_EQ(check.Wait(), 1);
    EXPECT_THAT(check.Errors(), HasSubstr("gateway.json:2:1: "));
}

#else

TEST_F(CheckTest, DescribesEveryLogFileOfAConfigurationWithoutFaults) {
    const std::string doubtful = WriteWith("\"unicode\": 0", "\"unicode\": ^2");
    Program check = Program::Gateway("check --config config");
    EXPECT_EQ(check.Wait(), 0);
    EXPECT_THAT(Lines(check.Errors()), ElementsAre(HasSubstr(doubtful + ": warning: ")));
    EXPECT_EQ(check.Output(),
              "KernelLog: Kavro.log, plain text in UTF-16, 1 file of up to 512000 bytes\n"
              "Trend: ./Spool/trend-%H%M%S-%i.csv, comma-separated in 8 bits, 3 files of up to 1000 bytes, "
              "uploaded on request, then kept in logs/\n"
              "Alarms@7: ./Spool/alarms-%H%M%S-%i.html, HTML, 1 file without a size limit, mailed on request\n");
    Program version = Program::Gateway("--version");
    EXPECT_EQ(version.Wait(), 0);
    EXPECT_THAT(version.Output(), testing::MatchesRegex("kvgateway [0-9]+\\.[0-9]+\\.[0-9]+\n"));
    EXPECT_EQ(Program::Gateway("init new/config").Wait(), 0);
    Program again = Program::Gateway("check --config new/config");
    EXPECT_EQ(again.Wait(), 0);
    EXPECT_EQ(again.Errors(), "");
    fs::remove("new/config/kvLogFile.json");
    EXPECT_EQ(Program::Gateway("init new/config").Wait(), 2) << "it would overwrite a file";
    EXPECT_FALSE(fs::exists("new/config/kvLogFile.json"));
}

#endif

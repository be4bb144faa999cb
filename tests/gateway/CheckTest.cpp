#include "gateway/Configuration.h"
#include "gateway/JsonObject.h"
#include "tests/gateway/Program.h"

namespace fs = std::filesystem;
using namespace testing;

// Writes the configuration without a fault that is kept beside this file, but with a text in place of another. "^" marks
// a place in it, and is left out. Returns the place: "FILE:LINE:COLUMN".
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

TEST(CheckTest, NamesThePlaceOfEveryFaultAndDoubt) {
    const Place empty({});
    for (const auto& fault : Table("config/faults.txt")) {
        const std::string place = WriteWith(fault.at(0), fault.at(1));
        Findings findings;
        Configuration::Load("config", findings);
        EXPECT_THAT(findings.Lines(), Contains(AllOf(StartsWith(place + ": "), HasSubstr(fault.at(2))))) << fault.at(1);
    }
}

TEST(CheckTest, SaysEverythingAtOnceAndRunRefusesIt) {
    const Place empty({});
    WriteWith("3, \"fileFormat\": 1, \"unicode\": 0", "-3, \"fileFormat\": 1, \"unicode\": 5^");
    WriteWhole("config/gateway.json", "{ \"schedul\": [] }");
    const std::string faults = RunToEnd(CHECK, "", 1);
    EXPECT_THAT(Lines(faults),
                ElementsAre(HasSubstr("gateway.json:1:3: "), HasSubstr("kvLogFile.json:7:19: "),
                            HasSubstr("kvLogFile.json:7:51: warning: "), HasSubstr("kvLogFile.json:8:23: "),
                            HasSubstr("kvLogFile.json:9:36: "), HasSubstr("kvLogFile.json:11:23: ")));
    EXPECT_THAT(RunToEnd(RUN, "", 2), HasSubstr(faults));
    EXPECT_FALSE(fs::exists("Kavro.log") || fs::exists("config/kvgateway.work"));

    // It may be left out, but a link that leads nowhere is a mistake.
    fs::remove("config/gateway.json");
    fs::create_symlink("../etc/gateway.json", "config/gateway.json");
    EXPECT_THAT(RunToEnd(CHECK, "", 1), HasSubstr("gateway.json: cannot be read: No such file or directory\n"));
}

#ifndef KV_WITHOUT_MAIL

TEST(CheckTest, DescribesEveryLogFileOfAConfigurationWithoutFaults) {
    const Place empty({});
    const std::string doubtful = WriteWith("\"unicode\": 0", "\"unicode\": ^2");
    Program check(CHECK);
    EXPECT_EQ(check.Wait(), 0);
    EXPECT_THAT(Lines(check.Errors()), ElementsAre(HasSubstr(doubtful + ": warning: ")));
    EXPECT_EQ(check.Output(),
              "Trend: ./Spool/trend-%H%M%S-%i.csv, comma-separated in 8 bits, 3 files of up to 1000 bytes, "
              "uploaded on request, then kept in logs/\n"
              "Alarms@7: ./Spool/alarms-%H%M%S-%i.html, HTML, 1 file without a size limit, mailed on request\n"
              "KernelLog: Kavro.log, plain text in UTF-16, 1 file of up to 512000 bytes\n");
    EXPECT_THAT(RunToEnd(GATEWAY + "--version"), MatchesRegex("kvgateway [0-9]+\\.[0-9]+\\.[0-9]+\n"));
}

#endif

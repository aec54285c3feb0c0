// The nfcollect service as built for the packages: the unit passes systemd's checks and keeps its
// hardening, and the example configuration sets the service's values and nothing else.

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "support/CollectorProcess.h"

namespace fs = std::filesystem;

namespace {

const fs::path kUnit = fs::path(TPNF_BINARY_DIR) / "packaging" / "nfcollect.service";
const fs::path kExampleConfig = fs::path(TPNF_BINARY_DIR) / "packaging" / "nfcollect.conf";

struct CommandResult {
    int status = -1;
    std::string output; // stdout and stderr together
};

CommandResult Shell(const std::string& command) {
    CommandResult result;
    std::FILE* pipe = ::popen((command + " 2>&1").c_str(), "r");
    if (pipe == nullptr)
        return result;
    char buffer[512];
    while (std::fgets(buffer, sizeof buffer, pipe) != nullptr)
        result.output += buffer;
    result.status = ::pclose(pipe);
    return result;
}

bool HaveSystemdAnalyze() {
    return Shell("command -v systemd-analyze").status == 0;
}

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

// Leak reports of a sanitizer build of nfcollect do not belong in the printed configuration.
std::string DumpConfig(const std::string& arguments) {
    const CommandResult r = Shell("ASAN_OPTIONS=detect_leaks=0 '" + tpnf::test::kCollector.string() + "' " +
                                  arguments + " --dump-config");
    EXPECT_EQ(r.status, 0) << r.output;
    return r.output;
}

class ServiceUnitTest : public testing::Test {
protected:
    void SetUp() override {
        if (!HaveSystemdAnalyze())
            GTEST_SKIP() << "systemd-analyze is not installed (Debian package systemd)";
        m_dir = fs::temp_directory_path() / ("tpnf_unit_" + std::to_string(getpid()) + "_" +
                                             testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::remove_all(m_dir);
        fs::create_directories(m_dir);
    }
    void TearDown() override {
        if (!m_dir.empty())
            fs::remove_all(m_dir);
    }

    // The unit with ExecStart= naming the program of this build, which systemd-analyze verify looks for.
    fs::path UnitForThisBuild() const {
        std::ifstream in(kUnit);
        std::ostringstream text;
        const std::regex execStart("^ExecStart=\\S+/nfcollect ");
        for (std::string line; std::getline(in, line);)
            text << std::regex_replace(line, execStart, "ExecStart=" + tpnf::test::kCollector.string() + " ")
                 << "\n";
        const fs::path unit = m_dir / "nfcollect.service";
        std::ofstream(unit) << text.str();
        return unit;
    }

    fs::path m_dir;
};

} // namespace

TEST_F(ServiceUnitTest, VerifiesWithoutAnyMessage) {
    const fs::path unit = UnitForThisBuild();
    ASSERT_NE(
        tpnf::test::ReadWholeFile(unit).find("ExecStart=" + tpnf::test::kCollector.string() + " --config "),
        std::string::npos);
    // The man page is not installed in a build tree; the package test checks that it is found.
    const CommandResult r = Shell("systemd-analyze verify --man=no '" + unit.string() + "'");
    EXPECT_EQ(r.status, 0) << r.output;
    EXPECT_EQ(r.output, "");
}

TEST_F(ServiceUnitTest, VerifyReportsAnUnknownSetting) {
    // The check above would catch a misspelt hardening option, which systemd ignores with a warning.
    const fs::path unit = UnitForThisBuild();
    std::string text = tpnf::test::ReadWholeFile(unit);
    text.replace(text.find("ProtectSystem="), 14, "ProtectSytsem=");
    std::ofstream(unit) << text;
    const CommandResult r = Shell("systemd-analyze verify --man=no '" + unit.string() + "'");
    EXPECT_NE(r.output.find("Unknown key 'ProtectSytsem' in section [Service], ignoring."), std::string::npos)
        << r.output;
}

TEST_F(ServiceUnitTest, ExposureLevelIsAtMostOnePointFour) {
    const CommandResult r = Shell("systemd-analyze security --offline=true '" + kUnit.string() + "'");
    std::smatch match;
    const std::regex overall("Overall exposure level for nfcollect\\.service: ([0-9]+\\.[0-9]) ([A-Z]+)");
    ASSERT_TRUE(std::regex_search(r.output, match, overall)) << r.output;
    EXPECT_LE(std::stod(match[1]), 1.4) << r.output;
    EXPECT_EQ(match[2], "OK");
}

TEST_F(ServiceUnitTest, RunsAsADynamicUserWithOnlyTheBindCapability) {
    const std::string unit = tpnf::test::ReadWholeFile(kUnit);
    for (const char* line :
         {"Type=notify", "ExecReload=/bin/kill -HUP $MAINPID", "Restart=on-failure", "DynamicUser=yes",
          "StateDirectory=nfcollect", "WorkingDirectory=/var/lib/nfcollect", "ProtectSystem=strict",
          "NoNewPrivileges=yes", "RestrictAddressFamilies=AF_INET AF_INET6 AF_UNIX",
          "CapabilityBoundingSet=CAP_NET_BIND_SERVICE", "AmbientCapabilities=CAP_NET_BIND_SERVICE",
          "SystemCallFilter=@system-service"})
        EXPECT_NE(unit.find(std::string("\n") + line + "\n"), std::string::npos) << line;
    EXPECT_NE(unit.find("/nfcollect --config "), std::string::npos);
    EXPECT_NE(unit.find("/nfcollect/nfcollect.conf\n"), std::string::npos);
}

TEST(ExampleConfiguration, SetsOnlyTheServiceValues) {
    const std::vector<std::string> defaults = Lines(DumpConfig(""));
    const std::vector<std::string> effective =
        Lines(DumpConfig("--config '" + kExampleConfig.string() + "'"));
    ASSERT_EQ(effective.size(), defaults.size());
    std::vector<std::string> changed;
    for (size_t i = 0; i < defaults.size(); ++i)
        if (effective[i] != defaults[i])
            changed.push_back(defaults[i] + " -> " + effective[i]);
    EXPECT_EQ(changed, (std::vector<std::string>{"format=\"text\" -> format=\"none\"",
                                                 "db=\"\" -> db=\"/var/lib/nfcollect/flows.sqlite\""}));
}

TEST(ExampleConfiguration, ListsEveryOptionWithItsDescription) {
    const std::string example = tpnf::test::ReadWholeFile(kExampleConfig);
    const std::regex setting("^[a-z][a-z0-9_-]*=");
    size_t options = 0;
    for (const std::string& line : Lines(DumpConfig(""))) {
        if (std::regex_search(line, setting)) {
            ++options;
            EXPECT_NE(example.find("\n#" + line + "\n"), std::string::npos) << line;
        } else if (!line.empty()) {
            EXPECT_NE(example.find("\n" + line + "\n"), std::string::npos) << line;
        }
    }
    EXPECT_GE(options, 13u); // port, format, ... duration
    std::vector<std::string> uncommented;
    for (const std::string& line : Lines(example))
        if (std::regex_search(line, setting))
            uncommented.push_back(line);
    EXPECT_EQ(uncommented,
              (std::vector<std::string>{"format=\"none\"", "db=\"/var/lib/nfcollect/flows.sqlite\""}));
}

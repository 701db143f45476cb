// The files that the program leaves on disk, and the text that it prints.

#include "HostError.h"
#include "loopback/OutputFile.h"
#include "loopback/Report.h"
#include "loopback/Sweep.h"

#include <talrtp/kit/NalUnit.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include <unistd.h>

namespace talrtp::host {
namespace {

using kit::FecScheme;
using testing::ElementsAre;
using testing::HasSubstr;

// An empty folder that goes with the test.
class OutputFileTest : public testing::Test {
protected:
    void SetUp() override {
        std::string pattern = testing::TempDir() + "talrtp-XXXXXX";
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        m_folder = pattern;
    }
    void TearDown() override { std::filesystem::remove_all(m_folder); }

    std::string path(const std::string& name) const { return (m_folder / name).string(); }

    std::string contents(const std::string& name) const {
        std::ifstream file(path(name));
        return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    }

    std::vector<std::string> names() const {
        std::vector<std::string> result;
        for (const auto& entry : std::filesystem::directory_iterator(m_folder)) {
            result.push_back(entry.path().filename().string());
        }
        return result;
    }

    std::filesystem::path m_folder;
};

TEST_F(OutputFileTest, AppearsWhenItIsComplete) {
    {
        COutputFile file(path("out"));
        file.stream() << "whole";
        EXPECT_FALSE(std::filesystem::exists(path("out")));
        file.commit();
    }
    EXPECT_THAT(names(), ElementsAre("out"));
    EXPECT_EQ(contents("out"), "whole");
}

TEST_F(OutputFileTest, LeavesNothingBehindOtherwise) {
    {
        COutputFile file(path("out"));
        file.stream() << "half";
    }
    EXPECT_TRUE(names().empty());
}

TEST_F(OutputFileTest, KeepsTheOldFileOtherwise) {
    std::ofstream(path("out")) << "old";
    {
        COutputFile file(path("out"));
        file.stream() << "half";
    }
    EXPECT_THAT(names(), ElementsAre("out"));
    EXPECT_EQ(contents("out"), "old");
}

TEST_F(OutputFileTest, WritesThroughASymbolicLink) {
    std::ofstream(path("real")) << "old";
    std::filesystem::create_symlink("real", path("link"));
    COutputFile file(path("link"));
    file.stream() << "new";
    file.commit();
    EXPECT_TRUE(std::filesystem::is_symlink(path("link")));
    EXPECT_EQ(contents("real"), "new");
}

TEST_F(OutputFileTest, RefusesAFolderAndAFileInNoFolder) {
    EXPECT_THROW(COutputFile{m_folder.string()}, CHostError);
    EXPECT_THROW(COutputFile{path("no/such/folder")}, CHostError);
    EXPECT_TRUE(names().empty());
}

TEST_F(OutputFileTest, WritesDevicesAsTheyAre) {
    COutputFile file("/dev/null");
    EXPECT_EQ(file.temporaryPath(), "/dev/null");
    file.commit();
    EXPECT_TRUE(std::filesystem::is_character_file("/dev/null"));
}

TEST_F(OutputFileTest, TellsWhenAByteCouldNotBeWritten) {
    COutputFile file("/dev/full");
    file.stream() << "lost";
    EXPECT_THROW(file.commit(), CHostError);
}

LoopbackReport goodReport() {
    LoopbackReport report;
    report.pictures = 2;
    report.units[kit::kNalSlice].add(100);
    report.units[kit::kNalPrefix].add(4);
    report.single.add(112);
    report.fragments.add(60);
    report.mediaFlow.sent = 7;
    report.mediaFlow.lost = 3;
    report.audit.units = 2;
    report.audit.whole = 2;
    report.audit.couldArrive = 2;
    return report;
}

TEST(Report, SaysThatEveryUnitCameBack) {
    const std::string text = describe("film", {}, goodReport());
    EXPECT_THAT(text, HasSubstr("  prefix units                         1           4\n"));
    EXPECT_THAT(text, HasSubstr("media packets                          2         172\n"));
    EXPECT_THAT(text, HasSubstr("  came                                 4           0\n"));
    EXPECT_THAT(text, HasSubstr("\nEvery unit came back, bit for bit and in order: 2 of 2.\n"));
}

TEST(Report, SaysThatWhatCouldArriveDid) {
    LoopbackReport report = goodReport();
    report.audit.units = 3;
    report.audit.missing = 1;
    EXPECT_THAT(describe("film", {}, report),
                HasSubstr("Every unit that could arrive did, bit for bit and in order: 2 of 3.\n"));
}

TEST(Report, SaysWhatIsWrong) {
    LoopbackReport report = goodReport();
    report.audit.couldArrive = 3;
    report.audit.arrivedButUndelivered = 1;
    EXPECT_THAT(describe("film", {}, report), HasSubstr("WRONG: 1 units that could arrive did not"));
}

TEST(Report, NamesTheFecWithTheGroupThatIsReallyMade) {
    LoopbackOptions options;
    options.sender.fec = {FecScheme::kXor, 10, 1};
    EXPECT_THAT(describe("film", options, goodReport()), HasSubstr("FEC xor, 1 over at most 9\n"));
}

TEST(Sweep, ComparesSchemesThatAddAboutAsMuch) {
    const std::vector<kit::Fec> schemes = schemesLike({FecScheme::kReedSolomon, 10, 2});
    ASSERT_EQ(schemes.size(), 3u);
    EXPECT_EQ(schemes[0].scheme, FecScheme::kNone);
    EXPECT_EQ(schemes[1].scheme, FecScheme::kXor);
    EXPECT_EQ(schemes[1].maxMedia, 5);
    EXPECT_EQ(schemes[2].maxMedia, 10);
    EXPECT_EQ(schemesLike({FecScheme::kReedSolomon, 200, 2})[1].maxMedia, 24);
    EXPECT_EQ(schemesLike({FecScheme::kReedSolomon, 2, 5})[1].maxMedia, 1);
}

// A made run: of 10 units as many are whole as the seed says.
TEST(Sweep, SumsTheRunsOfAPointAndWritesThemAsCsv) {
    SweepOptions options;
    options.base.sender.fec = {FecScheme::kReedSolomon, 10, 2};
    options.base.network.seed = 4;
    options.losses = {0, 0.25};
    options.runs = 3;
    const auto run = [](const LoopbackOptions& each) {
        LoopbackReport report;
        report.audit.units = 10;
        report.audit.whole = each.network.seed;
        report.audit.couldArrive = each.network.seed;
        report.mediaFlow.sent = 20;
        report.fecFlow.sent = each.sender.fec.scheme == FecScheme::kNone ? 0 : 4;
        report.audit.lostPackets = each.network.loss > 0 ? 5 : 0;
        return report;
    };
    std::ostringstream csv;
    writeCsv(runSweep(options, run), csv);
    std::string first;
    std::string second;
    std::istringstream lines(csv.str());
    std::getline(lines, first);
    std::getline(lines, second);
    EXPECT_EQ(second, "none,0,0,0,3,30,15,0,0,50.0000,60,0,0,0");
    EXPECT_THAT(csv.str(), HasSubstr("\nxor,5,1,0.25,3,30,15,0,0,50.0000,60,12,15,0\n"));
    EXPECT_THAT(csv.str(), HasSubstr("\nrs,10,2,0.25,3,30,15,0,0,50.0000,60,12,15,0\n"));
}

}  // namespace
}  // namespace talrtp::host

// CZIP's warning of Level 1 files, over the fake engines.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "fakes/fake_file_system.h"
#include "fakes/fake_log.h"
#include "fakes/fake_zip_engine.h"
#include "zip/czip.h"

namespace trevix {
namespace {

using fakes::FakeArchive;
using fakes::FakeEntry;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::StartsWith;

constexpr const char* kBlock =
    ".ade:.adp:.app:.bas:.bat:.cer:.chm:.cmd:.com:.cpl:.crt:.csh:.exe:.fxp:.hlp:.hta:.inf:.ins:"
    ".isp:.js:.jse:.ksh:.lnk:.mda:.mdb:.mde:.mdt:.mdw:.mdz:.msc:.msi:.msp:.mst:.ops:.pcd:.pif:"
    ".prf:.prg:.pst:.reg:.scf:.scr:.sct:.shb:.shs:.url:.vb:.vbe:.vbs:.wsc:.wsf:.wsh:.xsl";
constexpr const char* kReadme = "!_Trevix Level 1 Attachment Warning - Readme.txt";

std::string Warning(const std::string& names) {
    return "Quellmar Trevix Level 1 Attachment Warning\r\n"
           "This Zip file contains Level 1 files.\r\n"
           "Level 1 files contain potentially harmful content.\r\n"
           "Take appropriate precautions before opening these files.\r\n"
           "File Name(s):\r\n" +
           names;
}

struct World {
    explicit World(std::int16_t level = 5) : zip(factory, files, log, level) {
        files.PutDirectory("/w");
    }

    void Put(const std::vector<std::string>& names) {
        FakeArchive archive;
        archive.comment = "old";
        for (const std::string& name : names)
            archive.entries.push_back({name, "x", 5});
        factory.PutArchive("/w/a.zip", archive);
    }
    FakeArchive Archive() { return factory.ArchiveAt("/w/a.zip"); }
    bool Check() { return zip.CheckZIPContent("/w/a.zip", kBlock); }

    fakes::FaultPlan plan;
    fakes::FakeFileSystem files{plan};
    fakes::FakeLog log;
    fakes::FakeZipFactory factory{plan, files};
    CZIP zip;
};

TEST(CZIPCheckZIPContent, WarnsInTheArchiveOfTheProgramsInIt) {
    World world;
    world.Put({"setup.exe", "readme.doc"});

    EXPECT_TRUE(world.Check());

    const FakeArchive archive = world.Archive();
    ASSERT_EQ(archive.entries.size(), 3U);
    EXPECT_EQ(archive.entries[2].name, kReadme);
    EXPECT_EQ(archive.entries[2].content, Warning("setup.exe\r\n"));
    EXPECT_EQ(archive.comment, archive.entries[2].content);
    EXPECT_THAT(world.log.lines, IsEmpty());
}

TEST(CZIPCheckZIPContent, LeavesAnArchiveWithExtensionsInUpperCaseUnchanged) {
    World world;
    world.Put({"SETUP.EXE"});
    const std::string before = world.files.files["/w/a.zip"];

    EXPECT_FALSE(world.Check());

    EXPECT_EQ(world.files.files["/w/a.zip"], before);
}

TEST(CZIPCheckZIPContent, ListsAFileWithItsFolder) {
    World world;
    world.Put({"tools/run.bat", "tools/", "tools/notes.txt"});

    EXPECT_TRUE(world.Check());

    EXPECT_EQ(world.Archive().comment, Warning("tools/run.bat\r\n"));
}

TEST(CZIPCheckZIPContent, TakesTheBeginningOfAListedExtensionForListed) {
    World world;
    world.Put({"a.ms", "b.txt", "exe", "c.doc"});

    EXPECT_TRUE(world.Check());

    EXPECT_EQ(world.Archive().comment, Warning("a.ms\r\nexe\r\n"));
}

TEST(CZIPCheckZIPContent, FindsNothingInAnEmptyArchive) {
    World world;
    world.Put({});

    EXPECT_FALSE(world.Check());

    EXPECT_EQ(world.Archive().comment, "old");
}

TEST(CZIPCheckZIPContent, FindsNothingInAnEntryWithoutAName) {
    World world;
    world.Put({""});

    EXPECT_FALSE(world.Check());

    EXPECT_EQ(world.Archive().comment, "old");
}

TEST(CZIPCheckZIPContent, TakesAnArchiveThatCannotBeOpenedForHarmless) {
    World world;
    world.files.Put("/w/a.zip", "no archive");

    EXPECT_FALSE(world.Check());
    EXPECT_FALSE(world.zip.CheckZIPContent("/w/none.zip", kBlock));

    EXPECT_THAT(world.log.lines, IsEmpty());
}

TEST(CZIPCheckZIPContent, FindsAProgramBehindTheEntriesThatCanBeCounted) {
    World world;
    std::vector<std::string> names(33000, "a.txt");
    names.back() = "z.exe";
    world.Put(names);

    EXPECT_TRUE(world.Check());

    EXPECT_EQ(world.Archive().comment, Warning("z.exe\r\n"));
}

TEST(CZIPCheckZIPContent, ReplacesAnEarlierWarning) {
    World world;
    world.Put({"setup.exe"});
    world.Check();

    EXPECT_TRUE(world.Check());

    ASSERT_EQ(world.Archive().entries.size(), 2U);
    EXPECT_EQ(world.Archive().entries[1].content, Warning("setup.exe\r\n"));
}

TEST(CZIPCheckZIPContent, SaysWhyTheWarningCouldNotBeAdded) {
    World world;
    world.Put({"setup.exe"});
    world.plan.FailCalls("zip.Action5", {ErrorKind::kNoSpace, kDiskFull, "full"});

    EXPECT_TRUE(world.Check());

    EXPECT_THAT(world.log.lines,
                ElementsAre(fakes::LogLine{"CZIP", "CheckZIPContent",
                                           " error: 14 Error writing to a file", 1}));
}

TEST(CZIPCheckZIPContent, PutsAsManyNamesIntoTheCommentAsFit) {
    World world;
    std::vector<std::string> names;
    for (int i = 0; i < 500; ++i)
        names.push_back(std::to_string(i) + std::string(200, 'n') + ".exe");
    world.Put(names);

    EXPECT_TRUE(world.Check());

    const FakeArchive archive = world.Archive();
    EXPECT_THAT(archive.entries.back().content,
                EndsWith("499" + std::string(200, 'n') + ".exe\r\n"));
    EXPECT_THAT(archive.entries.back().content, StartsWith(archive.comment));
    EXPECT_THAT(archive.comment, EndsWith(".exe\r\n"));
    EXPECT_LE(archive.comment.size(), 65535U);
    EXPECT_GT(archive.comment.size(), 65000U);
}

TEST(CZIPCheckZIPContent, LeavesTheLevelAt5) {
    World world(9);
    world.Put({"setup.exe"});
    world.files.Put("/w/f", "x");

    world.Check();
    world.zip.ZIPAttach("/w/b.zip", "/w/f", 9);

    EXPECT_EQ(world.factory.ArchiveAt("/w/b.zip").entries.at(0).level, 5);
}

TEST(CZIPCheckZIPContent, LeavesTheLevelAloneWithoutAFind) {
    World world(9);
    world.Put({"readme.doc"});
    world.files.Put("/w/f", "x");

    world.Check();
    world.zip.ZIPAttach("/w/b.zip", "/w/f", 5);

    EXPECT_EQ(world.factory.ArchiveAt("/w/b.zip").entries.at(0).level, 9);
}

TEST(CZIPCheckZIPContent, PutsNoWordOfOneArchiveIntoTheNext) {
    World world;
    world.Put({"setup.exe"});
    world.files.Put("/w/f", "x");
    world.factory.PutArchive("/w/b.zip", FakeArchive{"its own", {}});

    world.Check();
    world.zip.ZIPAttach("/w/b.zip", "/w/f", 5);

    EXPECT_EQ(world.factory.ArchiveAt("/w/b.zip").comment, "its own");
}

TEST(CZIPZipAddWarning, DoesNothingForAnEmptyList) {
    World world;
    world.Put({"setup.exe"});
    const std::string before = world.files.files["/w/a.zip"];

    EXPECT_TRUE(world.zip.ZipAddWarning("/w/a.zip", "", 5));

    EXPECT_EQ(world.files.files["/w/a.zip"], before);
    EXPECT_THAT(world.log.lines, IsEmpty());
}

TEST(CZIPZipAddWarning, AddsTheWarningAtTheGivenLevel) {
    World world;
    world.Put({"setup.exe"});

    EXPECT_TRUE(world.zip.ZipAddWarning("/w/a.zip", "setup.exe\r\nb.js\r\n", 9));

    const FakeArchive archive = world.Archive();
    EXPECT_EQ(archive.entries.back(), (FakeEntry{kReadme, Warning("setup.exe\r\nb.js\r\n"), 9}));
    EXPECT_EQ(archive.comment, Warning("setup.exe\r\nb.js\r\n"));
    EXPECT_THAT(world.log.lines,
                ElementsAre(fakes::LogLine{"CZIP", "ZipAddWarning", " for /w/a.zip", 12}));
}

TEST(CZIPZipAddWarning, PutsWholeLinesIntoTheCommentUpToItsLastByte) {
    const std::size_t room = 65535 - Warning("a\r\n").size() - 2;
    const std::string fits = "a\r\n" + std::string(room, 'b') + "\r\n";
    const std::string too_long = "a\r\n" + std::string(room + 1, 'b') + "\r\n";
    World world;
    world.Put({"setup.exe"});

    world.zip.ZipAddWarning("/w/a.zip", fits, 5);
    EXPECT_EQ(world.Archive().comment, Warning(fits));

    world.zip.ZipAddWarning("/w/a.zip", too_long, 5);
    EXPECT_EQ(world.Archive().comment, Warning("a\r\n"));
    EXPECT_EQ(world.Archive().entries.back().content, Warning(too_long));
}

TEST(CZIPZipAddWarning, ReportsAFailureAndReturnsFalse) {
    World world;
    world.Put({"setup.exe"});
    world.factory.next_code = 15;

    EXPECT_FALSE(world.zip.ZipAddWarning("/w/a.zip", "setup.exe\r\n", 5));

    EXPECT_THAT(world.log.MessagesOfLevel(1),
                ElementsAre(" error for /w/a.zip:Couldn't open to write"));
}

TEST(CZIPZipAddWarning, PutsNoWordOfOneArchiveIntoTheNext) {
    World world;
    world.Put({"setup.exe"});
    world.files.Put("/w/f", "x");
    world.factory.PutArchive("/w/b.zip", FakeArchive{"its own", {}});

    world.zip.ZipAddWarning("/w/a.zip", "setup.exe\r\n", 5);
    world.zip.ZIPAttach("/w/b.zip", "/w/f", 5);

    EXPECT_EQ(world.factory.ArchiveAt("/w/b.zip").comment, "its own");
}

}  // namespace
}  // namespace trevix

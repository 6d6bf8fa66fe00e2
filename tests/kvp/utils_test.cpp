// Tests of the file name utilities. The URI checks and the resolution run
// against the platform's filesystem API.
#include <KvUtils.h>
#include <dlog-capture.h>

#include <gtest/gtest.h>

#include <regex>
#include <string>

using namespace DeviceAPI::KVP;

TEST(UtilsTest, PathBecomesAFileUri) {
    EXPECT_EQ(convertPathToUri("/opt/usr/media/Downloads/a.txt"),
              "file:///opt/usr/media/Downloads/a.txt");
}

TEST(UtilsTest, PathIsNotEscapedInTheUri) {
    EXPECT_EQ(convertPathToUri("/media/my file#1.txt"), "file:///media/my file#1.txt");
}

TEST(UtilsTest, TextBeginningWithTheFileSchemeIsReturnedUnchanged) {
    EXPECT_EQ(convertPathToUri("file:///opt/usr/media/a.txt"), "file:///opt/usr/media/a.txt");
}

TEST(UtilsTest, TextHoldingTheFileSchemeInTheMiddleIsReturnedUnchanged) {
    EXPECT_EQ(convertPathToUri("/tmp/file://x"), "/tmp/file://x");
}

TEST(UtilsTest, EmptyPathGivesTheBareScheme) { EXPECT_EQ(convertPathToUri(""), "file://"); }

TEST(UtilsTest, FileNameIsThePartAfterTheLastSlash) {
    EXPECT_EQ(getFileName("/opt/usr/media/Downloads/a.txt"), "a.txt");
    EXPECT_EQ(getFileName("file:///x/y.tar.gz"), "y.tar.gz");
}

TEST(UtilsTest, FileNameOfATextWithoutSlashIsTheWholeText) {
    EXPECT_EQ(getFileName("a.txt"), "a.txt");
    EXPECT_EQ(getFileName(""), "");
}

TEST(UtilsTest, FileNameOfATextEndingInASlashIsEmpty) {
    EXPECT_EQ(getFileName("/opt/usr/media/"), "");
}

TEST(UtilsTest, EscapedSlashesBecomePlainSlashes) {
    EXPECT_EQ(unescapeSlashes(R"(\/opt\/usr\/media\/a.txt)"), "/opt/usr/media/a.txt");
}

TEST(UtilsTest, TextWithoutABackslashIsUnchanged) {
    EXPECT_EQ(unescapeSlashes("/opt/usr/media/a.txt"), "/opt/usr/media/a.txt");
    EXPECT_EQ(unescapeSlashes(""), "");
}

TEST(UtilsTest, OtherBackslashesAreKept) { EXPECT_EQ(unescapeSlashes(R"(a\b\\c\)"), R"(a\b\\c\)"); }

TEST(UtilsTest, SearchGoesOnAfterTheInsertedSlash) {
    // "\\/" holds one escaped slash after a backslash: the backslash stays.
    EXPECT_EQ(unescapeSlashes(R"(\\/)"), R"(\/)");
    EXPECT_EQ(unescapeSlashes(R"(\/\/)"), "//");
    EXPECT_EQ(unescapeSlashes(R"(\//)"), "//");
}

TEST(UtilsTest, VirtualPathsAndFileUrisAreValid) {
    EXPECT_TRUE(isValidFileUri("documents/a.txt"));
    EXPECT_TRUE(isValidFileUri("downloads"));
    EXPECT_TRUE(isValidFileUri("file:///opt/usr/media/Images/b.png"));
}

TEST(UtilsTest, OtherTextsAreNotValidFileUris) {
    EXPECT_FALSE(isValidFileUri(""));
    EXPECT_FALSE(isValidFileUri("notes/a.txt"));
    EXPECT_FALSE(isValidFileUri("http://example.org/a.txt"));
}

TEST(UtilsTest, VirtualPathResolvesToTheDeviceMediaFolder) {
    EXPECT_EQ(convertUriToPath("documents/a.txt"), "/opt/usr/media/Documents/a.txt");
    EXPECT_EQ(convertUriToPath("downloads/b.bin"), "/opt/usr/media/Downloads/b.bin");
}

TEST(UtilsTest, FileUriResolvesToItsPath) {
    EXPECT_EQ(convertUriToPath("file:///opt/usr/media/Images/c.png"),
              "/opt/usr/media/Images/c.png");
}

TEST(UtilsTest, PathAndUriConversionsRoundTrip) {
    const std::string path = "/opt/usr/media/Videos/clip.mp4";
    EXPECT_EQ(convertUriToPath(convertPathToUri(path)), path);
}

TEST(UtilsTest, UnresolvableTextGivesAnEmptyPathAndAWarning) {
    for (const std::string uri : {"http://example.org/a.txt", "notes/a.txt", ""}) {
        DlogCapture capture;
        EXPECT_EQ(convertUriToPath(uri), "") << uri;
        const std::vector<DlogLine> lines = capture.lines();
        ASSERT_EQ(capture.count("Invalid file scheme"), 1u) << uri;
        bool found = false;
        for (const DlogLine& line : lines) {
            if (std::regex_match(
                    line.message,
                    std::regex(R"(KvUtils\.cpp: convertUriToPath\(\d+\) > Invalid file scheme)"))) {
                found = true;
                EXPECT_EQ(line.priority, DLOG_WARN);
                EXPECT_EQ(line.tag, "WRT_PLUGINS/TIZEN");
            }
        }
        EXPECT_TRUE(found) << uri;
    }
}

#include "util/files.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include <sys/resource.h>
#include <sys/stat.h>

#include "support/temp_dir.h"
#include "support/wav_bytes.h"

namespace veltrane {
namespace {

using test::temp_dir;

// (The 16 KiB limit of settings files is exercised by the config file tests.)
TEST(Files, ReadTextFileTakesEmptyFilesButNotDirectories) {
    temp_dir dir;
    std::string text = "unchanged";
    test::write_bytes(dir.file("empty"), {});
    EXPECT_TRUE(read_text_file(dir.file("empty"), text, settings_file_buffer_size));
    EXPECT_EQ(text, "");
    test::write_bytes(dir.file("too_big"), test::bytes(16384, 'a'));
    EXPECT_FALSE(read_text_file(dir.file("too_big"), text, settings_file_buffer_size));
    EXPECT_TRUE(text.empty());
    EXPECT_FALSE(read_text_file(dir.path(), text, settings_file_buffer_size));
}

TEST(Files, WriteTextFileStopsAtNulAndTruncates) {
    temp_dir dir;
    std::string path = dir.file("out.txt");
    ASSERT_TRUE(write_text_file(path, "a longer first text"));
    ASSERT_TRUE(write_text_file(path, std::string_view("ab\0cd", 5)));
    std::string text;
    ASSERT_TRUE(read_text_file(path, text, 100));
    EXPECT_EQ(text, "ab");
    EXPECT_FALSE(write_text_file(dir.file("no/such/dir"), "x"));
}

// Names in `dir`, so that a leftover temporary file shows.
std::vector<std::string> listing(const std::string& dir) {
    std::vector<std::string> names;
    for (const auto& e : std::filesystem::directory_iterator(dir)) names.push_back(e.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

std::string contents(const std::string& path) {
    std::string text;
    EXPECT_TRUE(read_text_file(path, text, 1 << 20)) << path;
    return text;
}

// A file-size limit makes every write beyond it fail, as a full disk does. The signal
// the kernel sends for it is ignored so that the write fails instead of the process.
class file_size_limit {
public:
    explicit file_size_limit(rlim_t bytes) {
        old_handler_ = std::signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &old_);
        rlimit lim = old_;
        lim.rlim_cur = bytes;
        setrlimit(RLIMIT_FSIZE, &lim);
    }
    ~file_size_limit() {
        setrlimit(RLIMIT_FSIZE, &old_);
        std::signal(SIGXFSZ, old_handler_);
    }

private:
    rlimit old_{};
    void (*old_handler_)(int) = nullptr;
};

TEST(Files, FailedWriteLeavesTheEarlierFileAndNoTemporary) {
    temp_dir dir;
    const std::string path = dir.file("report.html");
    ASSERT_TRUE(write_text_file(path, "earlier page"));
    {
        file_size_limit limit(4096);
        EXPECT_FALSE(write_binary_file(path, std::string(20000, 'x')));  // cut at 4096 bytes
        EXPECT_FALSE(write_text_file(dir.file("new.json"), std::string(20000, 'x')));
        atomic_output out;
        ASSERT_TRUE(out.open(dir.file("trim.wav")));
        EXPECT_FALSE(out.write(std::string(8192, 'x')) && out.commit());
    }
    EXPECT_EQ(contents(path), "earlier page");
    EXPECT_EQ(listing(dir.path()), std::vector<std::string>{"report.html"});
    // A complete write replaces the file; an uncommitted one leaves nothing behind.
    ASSERT_TRUE(write_binary_file(path, std::string_view("new\0page", 8)));
    EXPECT_EQ(contents(path), std::string("new\0page", 8));
    {
        atomic_output out;
        ASSERT_TRUE(out.open(path));
        ASSERT_TRUE(out.write("abandoned"));
    }
    EXPECT_EQ(contents(path), std::string("new\0page", 8));
    EXPECT_EQ(listing(dir.path()), std::vector<std::string>{"report.html"});
}

TEST(Files, WritesKeepModeAndLinksAndNeverBlock) {
    temp_dir dir;
    const std::string path = dir.file("out.html");
    ASSERT_TRUE(write_text_file(path, "a"));
    const mode_t mask = umask(0);
    umask(mask);
    EXPECT_EQ(std::filesystem::status(path).permissions(), std::filesystem::perms(0666 & ~mask));
    ASSERT_EQ(chmod(path.c_str(), 0640), 0);
    ASSERT_TRUE(write_text_file(path, "b"));
    EXPECT_EQ(std::filesystem::status(path).permissions(), std::filesystem::perms(0640));
    // Through a symbolic link: the file it points to is replaced, the link stays.
    std::filesystem::create_symlink(path, dir.file("link.html"));
    ASSERT_TRUE(write_text_file(dir.file("link.html"), "c"));
    EXPECT_TRUE(std::filesystem::is_symlink(dir.file("link.html")));
    EXPECT_EQ(contents(path), "c");
    // Things that are not regular files are written directly, never replaced.
    EXPECT_TRUE(write_text_file("/dev/null", "x"));
    EXPECT_TRUE(std::filesystem::is_character_file("/dev/null"));
    ASSERT_EQ(mkfifo(dir.file("fifo").c_str(), 0600), 0);
    EXPECT_FALSE(write_text_file(dir.file("fifo"), "x"));  // no reader: fails at once
    EXPECT_FALSE(write_text_file(dir.path(), "x"));        // a directory
    // Reading refuses everything but regular files, without waiting for a FIFO's writer.
    std::string text;
    EXPECT_FALSE(read_text_file(dir.file("fifo"), text, 100));
    EXPECT_EQ(open_regular_file_for_reading(dir.file("fifo")), nullptr);
    EXPECT_EQ(open_regular_file_for_reading("/dev/null"), nullptr);
    std::FILE* f = open_regular_file_for_reading(path);
    ASSERT_NE(f, nullptr);
    std::fclose(f);
}

TEST(Files, StaleOutputRemovalAndSameFile) {
    temp_dir dir;
    const std::string old_json = dir.file("old.json");
    ASSERT_TRUE(write_text_file(old_json, "{}"));
    ASSERT_TRUE(ensure_directory(dir.file("sub.json")));
    struct row {
        std::string path;
        stale_removal expected;
    };
    for (const row& r : {row{old_json, stale_removal::removed}, row{old_json, stale_removal::nothing_there},
                         row{dir.file("sub.json"), stale_removal::nothing_there}}) {
        EXPECT_EQ(remove_stale_output(r.path), r.expected) << r.path;
    }
    EXPECT_TRUE(is_directory(dir.file("sub.json")));

    ASSERT_TRUE(write_text_file(dir.file("a.wav"), "a"));
    ASSERT_TRUE(write_text_file(dir.file("b.wav"), "a"));
    std::filesystem::create_hard_link(dir.file("a.wav"), dir.file("hard.wav"));
    std::filesystem::create_symlink(dir.file("a.wav"), dir.file("soft.wav"));
    EXPECT_TRUE(same_file(dir.file("a.wav"), dir.file("a.wav")));
    EXPECT_TRUE(same_file(dir.file("a.wav"), dir.path() + "/./a.wav"));
    EXPECT_TRUE(same_file(dir.file("a.wav"), dir.file("hard.wav")));
    EXPECT_TRUE(same_file(dir.file("soft.wav"), dir.file("a.wav")));
    EXPECT_FALSE(same_file(dir.file("a.wav"), dir.file("b.wav")));
    EXPECT_FALSE(same_file(dir.file("missing"), dir.file("missing")));
}

TEST(Files, DirectoryQueriesAndCreation) {
    temp_dir dir;
    EXPECT_TRUE(path_exists(dir.path()));
    EXPECT_TRUE(is_directory(dir.path()));
    EXPECT_FALSE(path_exists(dir.file("nope")));
    EXPECT_TRUE(ensure_directory(dir.file("new")));
    EXPECT_TRUE(is_directory(dir.file("new")));
    EXPECT_TRUE(ensure_directory(dir.file("new")));           // already there
    EXPECT_FALSE(ensure_directory(dir.file("missing/child")));  // parents are not created
    test::write_bytes(dir.file("plain"), {'x'});
    EXPECT_TRUE(path_exists(dir.file("plain")));
    EXPECT_FALSE(is_directory(dir.file("plain")));
    EXPECT_FALSE(ensure_directory(dir.file("plain")));
}

TEST(Files, DirectoryOfCutsAtTheLastSeparator) {
    std::string dir;
    EXPECT_TRUE(directory_of("/usr/local/bin/veltrane", 4096, dir));
    EXPECT_EQ(dir, "/usr/local/bin");
    EXPECT_TRUE(directory_of("C:\\tools/x\\veltrane.exe", 4096, dir));
    EXPECT_EQ(dir, "C:\\tools/x");
    EXPECT_TRUE(directory_of("/veltrane", 4096, dir));  // file-system root: empty directory
    EXPECT_EQ(dir, "");
    EXPECT_FALSE(directory_of("veltrane", 4096, dir));
    EXPECT_FALSE(directory_of("/abcd/x", 5, dir));  // "/abcd" needs 5 characters plus the NUL
    EXPECT_TRUE(directory_of("/abc/x", 5, dir));
    EXPECT_TRUE(executable_dir(dir));
    EXPECT_TRUE(is_directory(dir));
    // The other end of the path: a name ending in a separator has an empty stem (the rest
    // of file_stem is exercised through the output naming tests).
    EXPECT_EQ(file_stem("out/", 256), "");
}

TEST(Files, UtcTimestampFormat) {
    std::string ts = utc_timestamp();
    const std::string shape = "dddd-dd-dd dd:dd:dd UTC";
    ASSERT_EQ(ts.size(), shape.size()) << ts;
    for (std::size_t i = 0; i < ts.size(); ++i)
        EXPECT_TRUE(shape[i] == 'd' ? std::isdigit(static_cast<unsigned char>(ts[i])) != 0 : ts[i] == shape[i]) << ts;
    EXPECT_EQ(utc_timestamp(5).size(), 4u);
}

}  // namespace
}  // namespace veltrane

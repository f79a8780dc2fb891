#include "util/files.h"

#include <gtest/gtest.h>

#include <cctype>

#include "support/temp_dir.h"
#include "support/wav_bytes.h"

namespace veltrane {
namespace {

using test::temp_dir;

TEST(Files, ReadTextFileHonoursTheBufferSize) {
    temp_dir dir;
    std::string text;
    test::write_bytes(dir.file("fits"), test::bytes(16383, 'a'));
    EXPECT_TRUE(read_text_file(dir.file("fits"), text, settings_file_buffer_size));
    EXPECT_EQ(text.size(), 16383u);
    test::write_bytes(dir.file("too_big"), test::bytes(16384, 'a'));
    EXPECT_FALSE(read_text_file(dir.file("too_big"), text, settings_file_buffer_size));
    EXPECT_TRUE(text.empty());
    test::write_bytes(dir.file("empty"), {});
    EXPECT_TRUE(read_text_file(dir.file("empty"), text, settings_file_buffer_size));
    EXPECT_EQ(text, "");
    EXPECT_FALSE(read_text_file(dir.file("missing"), text, settings_file_buffer_size));
    EXPECT_FALSE(read_text_file(dir.path(), text, settings_file_buffer_size));  // a directory
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
}

TEST(Files, FileStem) {
    EXPECT_EQ(file_stem("a/b/take3.wav", 256), "take3");
    EXPECT_EQ(file_stem("take.b.wav", 256), "take.b");
    EXPECT_EQ(file_stem(".wav", 256), ".wav");
    EXPECT_EQ(file_stem("dir.x/report", 256), "report");
    EXPECT_EQ(file_stem("C:\\caps\\x.wav", 256), "x");
    EXPECT_EQ(file_stem("out/", 256), "");
    EXPECT_EQ(file_stem("abcdef.wav", 4), "abc");
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

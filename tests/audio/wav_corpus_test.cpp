// Every file of the malformed-WAV corpus (tests/data/wav_corpus, also the fuzzer's seeds)
// must give the reason its manifest names, or decode when the manifest says "ok".
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "audio/wav.h"
#include "support/wav_bytes.h"

namespace veltrane::test {
namespace {

TEST(WavCorpus, EveryFileGivesItsManifestReason) {
    const std::string dir = std::string(VELTRANE_TEST_DATA_DIR) + "/wav_corpus/";
    std::ifstream manifest(dir + "manifest.txt");
    ASSERT_TRUE(manifest.good());
    std::string line;
    int checked = 0;
    while (std::getline(manifest, line)) {
        if (line.empty() || line[0] == '#') continue;
        std::istringstream fields(line);
        std::string file, expected;
        ASSERT_TRUE(fields >> file >> expected) << line;
        const bytes data = read_bytes(dir + file);
        ASSERT_FALSE(data.empty()) << file;
        wav_audio audio;
        const wav_decode_result result = wav_decode(data, audio);
        EXPECT_EQ(wav_failure_name(result.failure), expected == "ok" ? std::string("none") : expected) << file;
        ++checked;
    }
    EXPECT_GE(checked, 30);
}

}  // namespace
}  // namespace veltrane::test

// The mu-law encoder against the classic 16-bit reference encoder (segment search and shifts), over every
// 16-bit value: the float arithmetic that replaces the search must agree on every segment edge.

#include "lx/dsp/LXMuLaw.h"

#include <gtest/gtest.h>

#include <limits>
#include <vector>

namespace {

uint8_t referenceMuLaw(int pcm) {
    constexpr int kSegmentEnds[8] = {0xFF, 0x1FF, 0x3FF, 0x7FF, 0xFFF, 0x1FFF, 0x3FFF, 0x7FFF};
    const int mask = pcm < 0 ? 0x7F : 0xFF;
    int biased = (pcm < 0 ? -pcm : pcm) + 132;
    if (biased > 32767) biased = 32767;
    int segment = 0;
    while (biased > kSegmentEnds[segment])
        ++segment;
    return uint8_t(((segment << 4) | ((biased >> (segment + 3)) & 0x0F)) ^ mask);
}

} // namespace

TEST(MuLaw, EveryWholeSampleEncodesAsTheReferenceDoesAndOverloadClips) {
    std::vector<float> in;
    for (int v = -32768; v < 32768; ++v)
        in.push_back(float(v) / 32768.0f);
    const size_t whole = in.size();
    in.insert(in.end(), {2.0f, -2.0f, std::numeric_limits<float>::quiet_NaN()});
    std::vector<uint8_t> out(in.size());
    LXMuLawEncode(in.data(), out.data(), int64_t(in.size()));
    for (size_t i = 0; i < whole; ++i)
        ASSERT_EQ(out[i], referenceMuLaw(int(i) - 32768)) << "sample " << int(i) - 32768;
    EXPECT_EQ(out[whole], referenceMuLaw(32767));
    EXPECT_EQ(out[whole + 1], referenceMuLaw(-32768));
    EXPECT_EQ(out[whole + 2], referenceMuLaw(0)) << "not a number is silence";
}

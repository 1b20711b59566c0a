#include "node/engine/capture/capture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "tests/unit/node_host/temp_dir.h"

namespace {

using namespace std::chrono_literals;
using node::Capture;
using node::CaptureError;
using node::Time;
using testing::HasSubstr;

void put32(std::string& text, uint32_t value) {
    char bytes[4];
    std::memcpy(bytes, &value, 4);
    text.append(bytes, 4);
}

std::string fileHeader(uint32_t linkType = 1) {
    std::string text;
    put32(text, 0xa1b2c3d4);
    put32(text, 4u << 16 | 2u);
    put32(text, 0);
    put32(text, 0);
    put32(text, 65535);
    put32(text, linkType);
    return text;
}

std::string record(uint32_t seconds, uint32_t micros, const std::string& frame) {
    std::string text;
    put32(text, seconds);
    put32(text, micros);
    put32(text, static_cast<uint32_t>(frame.size()));
    put32(text, static_cast<uint32_t>(frame.size()));
    return text + frame;
}

std::string frameFrom(char source, size_t size = 60) {
    return std::string(6, '\xff') + std::string(6, source) + std::string(size - 12, '\0');
}

class CaptureTest : public testing::Test {
protected:
    // Plays the file; times and the first source byte of each frame.
    std::vector<std::pair<Time, char>> play(const std::string& contents, Time start = 0s,
                                            std::optional<Capture::Mac> nodeMac = {}) {
        std::vector<std::pair<Time, char>> seen;
        char source = 0;
        Capture capture({dir.write("x.pcap", contents), start, nodeMac},
                        [&](std::span<const uint8_t> frame) {
                            source = frame.size() > 6 ? static_cast<char>(frame[6]) : '-';
                        });
        while (const std::optional<Time> next = capture.next()) {
            capture.deliver();
            seen.emplace_back(*next, source);
        }
        damage = capture.damage();
        EXPECT_EQ(capture.percent(), 100u);
        EXPECT_EQ(capture.frames(), seen.size());
        return seen;
    }
    std::string errorOf(const std::string& contents) {
        try {
            play(contents);
        } catch (const CaptureError& error) {
            return error.what();
        }
        return "no error";
    }

    node_test::TempDir dir;
    std::string damage;
};

using Seen = std::vector<std::pair<Time, char>>;

TEST_F(CaptureTest, FirstFrameIsPlayedAtTheStartAndTheOthersAfterIt) {
    EXPECT_EQ(play(fileHeader() + record(1000, 900000, frameFrom('a')) +
                       record(1001, 100000, frameFrom('b')),
                   5s),
              (Seen{{5s, 'a'}, {5s + 200ms, 'b'}}));
    EXPECT_EQ(damage, "");
}

TEST_F(CaptureTest, TimeThatStepsBackIsPlayedWithoutAPause) {
    EXPECT_EQ(
        play(fileHeader() + record(1000, 0, frameFrom('a')) + record(1002, 0, frameFrom('b')) +
             record(999, 0, frameFrom('c')) + record(1003, 0, frameFrom('d'))),
        (Seen{{0s, 'a'}, {2s, 'b'}, {2s, 'c'}, {3s, 'd'}}));
}

TEST_F(CaptureTest, FramesOfTheNodeAreLeftOut) {
    const Capture::Mac node{'n', 'n', 'n', 'n', 'n', 'n'};
    EXPECT_EQ(play(fileHeader() + record(1, 0, frameFrom('a')) + record(2, 0, frameFrom('n')) +
                       record(3, 0, frameFrom('b')) + record(4, 0, frameFrom('n')),
                   0s, node),
              (Seen{{0s, 'a'}, {2s, 'b'}}));
}

TEST_F(CaptureTest, CaptureWithoutFramesIsPlayedAtOnce) {
    EXPECT_EQ(play(fileHeader()), Seen{});
    EXPECT_EQ(damage, "");
}

TEST_F(CaptureTest, RuntsAreDelivered) {
    EXPECT_EQ(play(fileHeader() + record(1, 0, "") + record(1, 0, "abc")),
              (Seen{{0s, '-'}, {0s, '-'}}));
}

TEST_F(CaptureTest, TruncatedCaptureIsPlayedUpToThereAndSaysSo) {
    const std::string whole =
        fileHeader() + record(1, 0, frameFrom('a')) + record(2, 0, frameFrom('b'));
    for (const size_t missing : {1u, 60u, 61u, 75u}) {
        EXPECT_EQ(play(whole.substr(0, whole.size() - missing)), (Seen{{0s, 'a'}})) << missing;
        EXPECT_THAT(damage, HasSubstr("x.pcap: damaged after 1 frames: "));
        EXPECT_EQ(damage.find('\n'), std::string::npos);
    }
}

TEST_F(CaptureTest, AbsurdLengthEndsTheCapture) {
    std::string bad = record(2, 0, frameFrom('b'));
    std::memset(bad.data() + 8, 0xee, 4);
    EXPECT_EQ(play(fileHeader() + record(1, 0, frameFrom('a')) + bad), (Seen{{0s, 'a'}}));
    EXPECT_NE(damage, "");
}

TEST_F(CaptureTest, DamagedTimesAreBoundedAndPlayed) {
    EXPECT_EQ(play(fileHeader() + record(0, 0, frameFrom('a')) +
                   record(0, 0xffffffff, frameFrom('b')) + record(0x7fffffff, 0, frameFrom('c'))),
              (Seen{{0s, 'a'}, {0s, 'b'}, {0x7fffffffs, 'c'}}));
}

TEST_F(CaptureTest, UnplayableFilesAreNamed) {
    EXPECT_THAT(errorOf(""), HasSubstr("x.pcap: the capture is empty"));
    EXPECT_THAT(errorOf("this is a text, not a capture of frames"),
                HasSubstr("x.pcap: not a capture that can be read: "));
    EXPECT_THAT(errorOf(fileHeader().substr(0, 10)), HasSubstr("x.pcap: not a capture"));
    EXPECT_THAT(errorOf(fileHeader(113)),
                HasSubstr("x.pcap: the capture is of link type LINUX_SLL"));
    EXPECT_THAT(errorOf(fileHeader(0x0fff)), HasSubstr("x.pcap: the capture is of link type "));
}

TEST_F(CaptureTest, MissingFileIsNamed) {
    EXPECT_THROW(Capture({dir.path() + "/none.pcap", 0s, {}}, [](std::span<const uint8_t>) {}),
                 CaptureError);
}

}  // namespace

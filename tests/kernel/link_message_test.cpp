// Messages about interfaces, sound and damaged.
#include "node/engine/kernel/link_message.h"

#include <gtest/gtest.h>
#include <linux/if.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>

using node::decodeLinkMessages;
using node::LinkMessage;
using Kind = LinkMessage::Kind;

namespace {

using Buffer = std::vector<uint8_t>;

template <typename Record>
void put(Buffer& out, const Record& record) {
    const size_t at = out.size();
    out.resize(at + sizeof record);
    std::memcpy(out.data() + at, &record, sizeof record);
}

void append(Buffer& out, const Buffer& more) {
    for (const uint8_t byte : more) {
        out.push_back(byte);
    }
}

void pad(Buffer& out) {
    out.resize((out.size() + 3) / 4 * 4);
}

Buffer attribute(uint16_t type, const Buffer& data) {
    Buffer out;
    put(out, rtattr{static_cast<uint16_t>(sizeof(rtattr) + data.size()), type});
    append(out, data);
    pad(out);
    return out;
}

Buffer text(const std::string& value) {
    Buffer out(value.begin(), value.end());
    out.push_back(0);
    return out;
}

Buffer number(uint32_t value) {
    Buffer out;
    put(out, value);
    return out;
}

Buffer message(uint16_t type, const Buffer& body, uint16_t flags = 0) {
    Buffer out;
    put(out, nlmsghdr{static_cast<uint32_t>(sizeof(nlmsghdr) + body.size()), type, flags, 1, 0});
    append(out, body);
    pad(out);
    return out;
}

Buffer body(int index, unsigned flags, const std::vector<Buffer>& attributes,
            unsigned char family = AF_UNSPEC) {
    Buffer out;
    ifinfomsg info{};
    info.ifi_family = family;
    info.ifi_index = index;
    info.ifi_flags = flags;
    put(out, info);
    for (const Buffer& one : attributes) {
        append(out, one);
    }
    return out;
}

constexpr unsigned up = IFF_UP | IFF_RUNNING | IFF_LOWER_UP;

Buffer sound(uint16_t type = RTM_NEWLINK, unsigned flags = up) {
    return message(type,
                   body(7, flags,
                        {attribute(IFLA_MTU, number(1500)), attribute(IFLA_IFNAME, text("dsl1")),
                         attribute(IFLA_CARRIER_DOWN_COUNT, number(3))}));
}

TEST(LinkMessage, TheFieldsOfAnInterfaceAreTaken) {
    const auto messages = decodeLinkMessages(sound());
    ASSERT_EQ(messages.size(), 1U);
    EXPECT_EQ(messages[0].kind, Kind::present);
    EXPECT_EQ(messages[0].ifIndex, 7U);
    EXPECT_EQ(messages[0].name, "dsl1");
    EXPECT_TRUE(messages[0].up);
    EXPECT_EQ(messages[0].carrierDowns, 3U);
    EXPECT_FALSE(messages[0].listChanged);
}

TEST(LinkMessage, UpMeansSwitchedOnWithALink) {
    const struct {
        unsigned flags;
        bool isUp;
    } rows[] = {{0, false},
                {IFF_UP, false},
                {up ^ IFF_UP, false},
                {up ^ IFF_RUNNING, false},
                {up ^ IFF_LOWER_UP, false},
                {up, true},
                {up | IFF_PROMISC, true}};
    for (const auto& row : rows) {
        const auto messages = decodeLinkMessages(sound(RTM_NEWLINK, row.flags));
        ASSERT_EQ(messages.size(), 1U);
        EXPECT_EQ(messages[0].up, row.isUp) << row.flags;
    }
}

TEST(LinkMessage, AnInterfaceThatIsGoneIsTold) {
    const auto messages = decodeLinkMessages(sound(RTM_DELLINK));
    ASSERT_EQ(messages.size(), 1U);
    EXPECT_EQ(messages[0].kind, Kind::gone);
    EXPECT_EQ(messages[0].ifIndex, 7U);
}

TEST(LinkMessage, APortThatLeavesItsBridgeIsNotGone) {
    const Buffer port =
        message(RTM_DELLINK, body(7, IFF_UP, {attribute(IFLA_IFNAME, text("dsl1"))}, AF_BRIDGE));
    EXPECT_TRUE(decodeLinkMessages(port).empty());
}

TEST(LinkMessage, ADatagramHoldsSeveralMessages) {
    Buffer datagram = sound();
    for (const Buffer& more :
         {message(RTM_NEWADDR, Buffer(8, 0)), message(NLMSG_NOOP, {}), sound(RTM_DELLINK),
          message(NLMSG_DONE, number(0), NLM_F_MULTI | NLM_F_DUMP_INTR)}) {
        append(datagram, more);
    }
    const auto messages = decodeLinkMessages(datagram);
    ASSERT_EQ(messages.size(), 3U);
    EXPECT_EQ(messages[0].kind, Kind::present);
    EXPECT_EQ(messages[1].kind, Kind::gone);
    EXPECT_EQ(messages[2].kind, Kind::endOfList);
    EXPECT_TRUE(messages[2].listChanged);
}

TEST(LinkMessage, AnErrorCarriesItsNumberAndAConfirmationIsNone) {
    nlmsgerr refused{};
    refused.error = -EBUSY;
    Buffer content;
    put(content, refused);
    const auto messages = decodeLinkMessages(message(NLMSG_ERROR, content));
    ASSERT_EQ(messages.size(), 1U);
    EXPECT_EQ(messages[0].kind, Kind::error);
    EXPECT_EQ(messages[0].error, EBUSY);
    Buffer done;
    put(done, nlmsgerr{});
    EXPECT_TRUE(decodeLinkMessages(message(NLMSG_ERROR, done)).empty());
}

TEST(LinkMessage, DamagedMessagesAreLeftOut) {
    const Buffer name = attribute(IFLA_IFNAME, text("dsl1"));
    Buffer shortLength = sound(), longLength = sound();
    shortLength[0] = sizeof(nlmsghdr) - 1;
    longLength[0] = static_cast<uint8_t>(longLength.size() + 1);
    Buffer tiny = name, huge = name;
    tiny[0] = 3;
    huge[0] = 200;
    const struct {
        const char* what;
        Buffer datagram;
    } rows[] = {
        {"nothing", {}},
        {"half a header", Buffer(8, 0)},
        {"a length below the header", shortLength},
        {"a length beyond the datagram", longLength},
        {"no body", message(RTM_NEWLINK, {})},
        {"half a body", message(RTM_NEWLINK, Buffer(8, 0))},
        {"no attributes", message(RTM_NEWLINK, body(7, 0, {}))},
        {"no name", message(RTM_NEWLINK, body(7, 0, {attribute(IFLA_MTU, number(1500))}))},
        {"an empty name", message(RTM_NEWLINK, body(7, 0, {attribute(IFLA_IFNAME, text(""))}))},
        {"index 0", message(RTM_NEWLINK, body(0, 0, {name}))},
        {"a negative index", message(RTM_NEWLINK, body(-1, 0, {name}))},
        {"an attribute below its head", message(RTM_NEWLINK, body(7, 0, {tiny}))},
        {"an attribute beyond the message", message(RTM_NEWLINK, body(7, 0, {huge}))},
        {"half an error", message(NLMSG_ERROR, Buffer(2, 0xff))},
    };
    for (const auto& row : rows) {
        EXPECT_TRUE(decodeLinkMessages(row.datagram).empty()) << row.what;
    }
}

TEST(LinkMessage, EveryPlaceToCutADatagramIsSurvived) {
    const Buffer whole = sound();
    for (size_t size = 0; size < whole.size(); ++size) {
        // A copy of exactly this size, so that a checker of memory sees a read behind it.
        const Buffer cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
        EXPECT_TRUE(decodeLinkMessages(cut).empty()) << size;
    }
}

TEST(LinkMessage, EveryDamagedByteIsSurvived) {
    const Buffer whole = sound();
    for (size_t at = 0; at < whole.size(); ++at) {
        for (const unsigned value : {0U, 1U, 3U, 4U, 0x7fU, 0x80U, 0xffU}) {
            Buffer damaged = whole;
            damaged[at] = static_cast<uint8_t>(value);
            EXPECT_LE(decodeLinkMessages(damaged).size(), 1U);
        }
    }
}

}  // namespace

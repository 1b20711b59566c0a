// The small parts of the client.
#include <gtest/gtest.h>

#include <random>
#include <set>

#include "node/isa/radius/client/address.h"
#include "node/isa/radius/client/counters.h"
#include "node/isa/radius/client/deadlines.h"
#include "node/isa/radius/client/random.h"
#include "node/isa/radius/client/retry.h"
#include "node/isa/radius/client/token_bucket.h"
#include "tests/radius/hex.h"
#include "tests/radius/virtual_reactor.h"

namespace {

using namespace node::radius;
using node::Time;

TEST(RetryAfter, DoublesUpToTheLongest) {
    const RetrySettings settings{Time(1000), Time(5000), 5};
    Time wait(0);
    for (const int expected : {1000, 2000, 4000, 5000, 5000}) {
        wait = retryAfter(settings, wait, 0);
        EXPECT_EQ(Time(expected), wait);
    }
    EXPECT_EQ(Time(17000), retryTotal(settings));
}

TEST(RetryAfter, JitterMovesByUpToATenth) {
    const RetrySettings settings{Time(1000), Time(5000), 5};
    EXPECT_EQ(Time(1100), retryAfter(settings, Time(0), 1));
    EXPECT_EQ(Time(900), retryAfter(settings, Time(0), -1));
    EXPECT_EQ(Time(2100), retryAfter(settings, Time(1000), 1));
    EXPECT_EQ(Time(5500), retryAfter(settings, Time(4000), 1));
    EXPECT_EQ(Time(4500), retryAfter(settings, Time(5500), -1));
}

TEST(RetryAfter, FirstWaitIsNotLongerThanTheLongest) {
    EXPECT_EQ(Time(500), retryAfter({Time(1000), Time(500), 1}, Time(0), 0));
}

TEST(TokenBucket, GivesItsBurstAndThenItsRate) {
    TokenBucket bucket(10, 3, Time(0));
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(bucket.take(Time(0)));
    }
    EXPECT_FALSE(bucket.take(Time(0)));
    EXPECT_EQ(Time(100'000), bucket.next(Time(0)));
    EXPECT_FALSE(bucket.take(Time(99'999)));
    EXPECT_TRUE(bucket.take(Time(100'000)));
    EXPECT_FALSE(bucket.take(Time(100'000)));
}

TEST(TokenBucket, RateHoldsOverALongTimeWhateverTheSteps) {
    std::mt19937 dice(7);
    TokenBucket bucket(33, 1, Time(0));
    int taken = 0;
    Time now(0);
    while (now < Time(100'000'000)) {
        taken += bucket.take(now) ? 1 : 0;
        now += Time(std::uniform_int_distribution<int>(1, 2000)(dice));
    }
    EXPECT_NEAR(3300, taken, 110);
}

TEST(TokenBucket, LongPauseGivesTheBurstAndNoMore) {
    TokenBucket bucket(1'000'000, 5, Time(0));
    const Time later = Time(int64_t{1} << 60);
    for (int i = 0; i < 5; ++i) {
        EXPECT_TRUE(bucket.take(later));
    }
    EXPECT_FALSE(bucket.take(later));
}

TEST(TokenBucket, NextIsTheTimeWhenTakeSucceeds) {
    for (const uint32_t rate : {1U, 3U, 7U, 50U, 999'999U}) {
        TokenBucket bucket(rate, 1, Time(0));
        Time now(0);
        for (int i = 0; i < 20; ++i) {
            now = bucket.next(now);
            EXPECT_TRUE(bucket.take(now)) << rate;
        }
    }
}

TEST(Histogram, PercentileIsAtMostASixteenthTooHigh) {
    for (const int64_t value : {0L, 1L, 15L, 16L, 17L, 31L, 32L, 1000L, 123456L, 99999999L}) {
        Histogram histogram;
        histogram.add(Time(value));
        const Time::rep found = histogram.percentile(50).count();
        EXPECT_GE(found, value);
        EXPECT_LE(found, value + value / 16);
    }
}

TEST(Histogram, PercentilesOfAThousandAreInTheirPlace) {
    Histogram histogram;
    for (int i = 1; i <= 1000; ++i) {
        histogram.add(Time(i * 1000));
    }
    EXPECT_EQ(1000U, histogram.count());
    for (const double percent : {1.0, 50.0, 90.0, 99.0, 99.9, 100.0}) {
        const double exact = percent * 10 * 1000;
        const auto found = static_cast<double>(histogram.percentile(percent).count());
        EXPECT_GE(found, exact);
        EXPECT_LE(found, exact * 1.0626);
    }
    EXPECT_GE(histogram.percentile(0).count(), 1000);
    EXPECT_LE(histogram.percentile(0).count(), 1063);
}

TEST(Histogram, ExtremesStayInside) {
    Histogram histogram;
    EXPECT_EQ(Time(0), histogram.percentile(99));
    histogram.add(Time(-5));
    EXPECT_EQ(Time(0), histogram.percentile(50));
    histogram.add(Time::max());
    EXPECT_GE(histogram.percentile(100), Time((int64_t{1} << 36) - 1));
}

TEST(Deadlines, AreMetInTheirOrderWithOneTimer) {
    radius_test::VirtualReactor reactor;
    std::vector<uint64_t> met;
    Deadlines deadlines(reactor, [&](uint64_t key) { met.push_back(key); });
    const Time now = reactor.now();
    deadlines.add(now + Time(30), 3);
    deadlines.add(now + Time(10), 1);
    deadlines.add(now + Time(20), 2);
    deadlines.add(now + Time(20), 4);
    EXPECT_EQ(1U, reactor.timers());
    deadlines.remove(now + Time(20), 2);
    reactor.advance(Time(25));
    EXPECT_EQ((std::vector<uint64_t>{1, 4}), met);
    reactor.advance(Time(5));
    EXPECT_EQ((std::vector<uint64_t>{1, 4, 3}), met);
    EXPECT_EQ(0U, reactor.timers());
}

TEST(Deadlines, MayBeAddedAndRemovedWhileOneIsMet) {
    radius_test::VirtualReactor reactor;
    std::vector<uint64_t> met;
    const Time start = reactor.now();
    Deadlines* all = nullptr;
    Deadlines deadlines(reactor, [&](uint64_t key) {
        met.push_back(key);
        if (key == 1) {
            all->remove(start + Time(10), 2);
            all->add(start + Time(10), 5);
            all->add(start + Time(50), 6);
        }
    });
    all = &deadlines;
    deadlines.add(start + Time(10), 1);
    deadlines.add(start + Time(10), 2);
    reactor.advance(Time(100));
    EXPECT_EQ((std::vector<uint64_t>{1, 5, 6}), met);
}

TEST(Random, SeedRepeatsTheJitterButNeverAnAuthenticator) {
    Random a(42), b(42), c(43);
    std::set<Authenticator> authenticators;
    bool differs = false;
    double least = 1, most = -1;
    for (int i = 0; i < 1000; ++i) {
        const double jitter = a.jitter();
        EXPECT_EQ(jitter, b.jitter());
        differs = differs || jitter != c.jitter();
        least = std::min(least, jitter);
        most = std::max(most, jitter);
        authenticators.insert(a.authenticator());
        authenticators.insert(b.authenticator());
    }
    EXPECT_TRUE(differs);
    EXPECT_EQ(2000U, authenticators.size());
    EXPECT_GE(least, -1);
    EXPECT_LT(least, -0.98);
    EXPECT_LE(most, 1);
    EXPECT_GT(most, 0.98);
}

TEST(SocketAddress, GoodAddressesAreRead) {
    const auto four = SocketAddress::parse("127.0.0.1", 1812);
    const auto six = SocketAddress::parse("::1", 65535);
    ASSERT_TRUE(four && six);
    EXPECT_EQ(1812, four->port());
    EXPECT_EQ(65535, six->port());
    EXPECT_TRUE(four->sameHost(*SocketAddress::parse("127.0.0.1", 7)));
    EXPECT_FALSE(four->sameHost(*SocketAddress::parse("127.0.0.2", 1812)));
    EXPECT_TRUE(six->sameHost(*SocketAddress::parse("0:0::1", 7)));
    EXPECT_FALSE(six->sameHost(*SocketAddress::parse("::2", 7)));
    EXPECT_FALSE(six->sameHost(*four));
}

TEST(SocketAddress, BytesAreThoseOfAttributes) {
    EXPECT_EQ(radius_test::fromHex("c0000207"), SocketAddress::parse("192.0.2.7", 9)->bytes());
    EXPECT_EQ(radius_test::fromHex("20010db8000000000000000000000007"),
              SocketAddress::parse("2001:db8::7", 9)->bytes());
}

TEST(SocketAddress, Ipv4WrittenAsIpv6IsTheSameHost) {
    const auto four = *SocketAddress::parse("192.0.2.1", 0);
    const auto mapped = *SocketAddress::parse("::ffff:192.0.2.1", 7);
    EXPECT_TRUE(four.sameHost(mapped));
    EXPECT_TRUE(mapped.sameHost(four));
    EXPECT_TRUE(mapped.sameHost(mapped));
    EXPECT_FALSE(mapped.sameHost(*SocketAddress::parse("192.0.2.2", 0)));
    EXPECT_FALSE(mapped.sameHost(*SocketAddress::parse("::ffff:192.0.2.2", 0)));
    EXPECT_FALSE(four.sameHost(*SocketAddress::parse("::192.0.2.1", 0)));
}

TEST(SocketAddress, BadAddressesAreRefused) {
    for (const char* text : {"", "localhost", "127.0.0", "127.0.0.1 ", "127.0.0.256", "1.2.3.4:5",
                             "[::1]", "::1%lo", ":::"}) {
        EXPECT_FALSE(SocketAddress::parse(text, 1)) << text;
    }
}

}  // namespace

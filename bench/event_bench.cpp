// What an event line costs: decoding it, and the whole way from the line to the call of ISA.
//
// The lines are 99, one per interface, with random numbers from a fixed seed, and are taken in
// turn: a single line would be learnt by heart by the processor's branch predictor and flatter
// every decoder. Both decoders are given the line as the engine hands it over, a pointer to a
// NUL-terminated text.
#include <benchmark/benchmark.h>
#include <stdio.h>

#include <algorithm>
#include <string>
#include <vector>

#include "bench/check.h"
#include "bench/null_platform.h"
#include "tal/event_line.h"
#include "tal/tal.h"
#include "tests/oracle/event_line_oracle.h"
#include "tests/oracle/event_line_text.h"
#include "tests/oracle/random_text.h"

namespace {

using oracle::EventLineText;

constexpr char hexDigits[] = "0123456789abcdef";

EventLineText randomLine(unsigned id, oracle::RandomText& random) {
    EventLineText text;
    text.interface = bench::kernelName(id);
    text.vlan = oracle::threeDigitText(1 + random.below(999)) + " ";
    text.mac = random.digits(12, hexDigits);
    text.address.clear();
    for (size_t i = 0; i < 4; ++i)
        text.address += oracle::threeDigitText(random.below(256)) + (i < 3 ? "." : "");
    text.pattern = random.digits(256, hexDigits);
    text.options = oracle::vendorOption("home-gateway 4.2") +
                   oracle::remoteOption("cabinet 17 line " + std::to_string(id)) +
                   oracle::clientOption("01" + text.mac, "001");
    return text;
}

std::vector<EventLineText> randomLines() {
    oracle::RandomText random(20240229);
    std::vector<EventLineText> lines;
    for (unsigned id = 1; id <= bench::interfaceCount; ++id)
        lines.push_back(randomLine(id, random));
    return lines;
}

// Traffic with all three options.
const std::vector<std::string>& fullLines() {
    static const std::vector<std::string> lines = [] {
        std::vector<std::string> full;
        for (const EventLineText& text : randomLines())
            full.push_back(text.line());
        return full;
    }();
    return lines;
}

std::vector<std::string> headerLines() {
    std::vector<std::string> headers;
    for (const std::string& line : fullLines())
        headers.push_back(line.substr(0, tal_text::eventLineComplete));
    return headers;
}

// The lines in turn, for ever.
class Turns {
public:
    explicit Turns(const std::vector<std::string>& lines) : lines_(lines) {}

    const char* next() {
        const char* const line = lines_[at_].c_str();
        at_ = at_ + 1 == lines_.size() ? 0 : at_ + 1;
        return line;
    }

private:
    const std::vector<std::string>& lines_;
    size_t at_ = 0;
};

tal& startedModule() {
    static tal& module = singleton<tal>::instance();
    static const bool started = module.start();
    if (!started)
        fputs("The module did not start.\n", stderr);  // the check of the requests fails then
    return module;
}

void eventToIsa(benchmark::State& state, const std::vector<std::string>& lines) {
    tal& module = startedModule();
    Turns turns(lines);
    const uint64_t before = bench::loginRequests();
    for (auto _ : state)
        module.talEvent(turns.next());
    bench::check(state,
                 bench::loginRequests() - before == static_cast<uint64_t>(state.iterations()),
                 "an event did not reach ISA");
}

void fullLineToIsa(benchmark::State& state) {
    eventToIsa(state, fullLines());
}
BENCHMARK(fullLineToIsa);

void headerLineToIsa(benchmark::State& state) {
    eventToIsa(state, headerLines());
}
BENCHMARK(headerLineToIsa);

bool sameDecoding(const char* line) {
    const oracle::Event slow = oracle::decodeEventLine(line);
    const std::string_view name = tal_text::eventLineInterface(line).value_or("");
    const tal_text::EventFields fast = tal_text::decodeEventFields(line);
    return !slow.dropped && name == slow.interface && fast.vlanId == slow.vlanId &&
           std::ranges::equal(fast.sourceMac, slow.sourceMac) && fast.sourceIp == slow.sourceIp &&
           fast.patternPresent && std::ranges::equal(fast.pattern, slow.pattern) &&
           !fast.clientId.empty() && fast.remoteId == slow.remoteId &&
           fast.vendorId == slow.vendorId && fast.clientId == slow.clientId;
}

void checkDecodings(benchmark::State& state) {
    bench::check(state,
                 std::ranges::all_of(fullLines(),
                                     [](const auto& line) { return sameDecoding(line.c_str()); }),
                 "the decoders disagree");
}

void decodeLine(benchmark::State& state) {
    checkDecodings(state);
    Turns turns(fullLines());
    for (auto _ : state) {
        const std::string_view line = turns.next();
        auto name = tal_text::eventLineInterface(line);
        tal_text::EventFields fields = tal_text::decodeEventFields(line);
        benchmark::DoNotOptimize(name);
        benchmark::DoNotOptimize(fields);
    }
}
BENCHMARK(decodeLine);

void decodeLineTwin(benchmark::State& state) {
    checkDecodings(state);
    Turns turns(fullLines());
    for (auto _ : state) {
        oracle::Event event = oracle::decodeEventLine(turns.next());
        benchmark::DoNotOptimize(event);
    }
}
BENCHMARK(decodeLineTwin);

// Only the calls of sscanf that decoding a full line takes, on pieces cut out beforehand. The
// twin also cuts, guards its buffers and copies identifiers; this is the part that no way of
// decoding with sscanf could save.
struct ScanPieces {
    char vlan[4];
    char mac[6][2];
    char address[4][3];
    char pattern[32][9];
    char options[7][4];

    explicit ScanPieces(const EventLineText& text) {
        cut(vlan, text.vlan, 0);
        for (size_t k = 0; k < 6; ++k)
            cut(mac[k], text.mac, 2 * k);
        for (size_t i = 0; i < 4; ++i)
            cut(address[i], text.address, 4 * i);
        for (size_t i = 0; i < 32; ++i)
            cut(pattern[i], text.pattern, 8 * i);
        pattern[31][7] = '\0';
        const char* const numbers[] = {"060", "016", "002", "018", "061", "014", "001"};
        for (size_t i = 0; i < 7; ++i)
            cut(options[i], numbers[i], 0);
    }

    template <size_t size>
    static void cut(char (&piece)[size], std::string_view text, size_t at) {
        const size_t copied = text.copy(piece, size - 1, at);
        piece[copied] = '\0';
    }
};

void scanLineOnly(benchmark::State& state) {
    std::vector<ScanPieces> lines;
    for (const EventLineText& text : randomLines())
        lines.emplace_back(text);
    size_t at = 0;
    for (auto _ : state) {
        const ScanPieces& pieces = lines[at];
        at = at + 1 == lines.size() ? 0 : at + 1;
        uint16_t vlan = 0;
        unsigned number = 0;
        int option = 0;
        int read = sscanf(pieces.vlan, "%hu", &vlan);
        for (const char* const digit : pieces.mac)
            read += sscanf(digit, "%x", &number);
        for (const char* const digits : pieces.address)
            read += sscanf(digits, "%u", &number);
        for (const char* const digits : pieces.pattern)
            read += sscanf(digits, "%x", &number);
        for (const char* const digits : pieces.options)
            read += sscanf(digits, "%03d", &option);
        benchmark::DoNotOptimize(vlan);
        benchmark::DoNotOptimize(number);
        benchmark::DoNotOptimize(option);
        if (read != 50) {
            bench::check(state, false, "a number was not read");
            break;
        }
    }
}
BENCHMARK(scanLineOnly);

}  // namespace

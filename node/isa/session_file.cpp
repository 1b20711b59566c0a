// One line per session, words joined by blanks, texts and bytes in hex with a "." for nothing, so
// that whatever a subscriber or a server sent cannot break a line:
//   id interface began announced ended cause in-octets out-octets in-packets out-packets
//   name circuit remote mac address vlan vendor client class,class
//   seconds user-name port-id
// `announced` is 1 when the Start was taken, 2 when it was only sent. Without the last three and
// without a 2 it is of the first format, which is still read.
// The first line names the format and the last one counts the sessions, so that a file that was
// cut is told from a whole one. The file is replaced by a rename after its contents reached the
// disk. A file that cannot be read is left as it is: an operator must decide, since beginning
// afresh would leave sessions open at the server for good.
// Tested by tests/unit/node_host/session_file_test.cpp.
#include "node/isa/session_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <system_error>

#include "node/isa/radius/client/socket.h"

namespace node {

namespace {

constexpr std::string_view heading = "tal sessions 2";
constexpr std::string_view firstHeading = "tal sessions 1";
constexpr std::string_view end = "end ";
constexpr size_t wordsOfALine = 22;
constexpr size_t wordsOfTheFirst = 19;
constexpr uint64_t longestFile = 64 * 1024 * 1024;

std::string hex(radius::Bytes bytes) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (const uint8_t byte : bytes) {
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text.empty() ? "." : text;
}

std::string hex(const std::string& text) {
    return hex(radius::Bytes(reinterpret_cast<const uint8_t*>(text.data()), text.size()));
}

std::string lineOf(const StoredSession& session) {
    std::ostringstream text;
    const radius::Line& line = session.line;
    const Traffic& traffic = session.traffic;
    text << session.id << ' ' << session.ifId << ' ' << session.began << ' '
         << (session.announced ? 1
             : session.sent    ? 2
                               : 0)
         << ' ' << session.ended << ' ' << static_cast<uint32_t>(session.cause) << ' '
         << traffic.inputOctets << ' ' << traffic.outputOctets << ' ' << traffic.inputPackets << ' '
         << traffic.outputPackets << ' ' << hex(line.interfaceName) << ' ' << hex(line.circuitId)
         << ' ' << hex(line.remoteId) << ' ' << (line.mac ? hex(radius::Bytes(*line.mac)) : ".")
         << ' ' << line.address.value_or(0) << ' ' << line.vlan << ' ' << hex(line.vendorClass)
         << ' ' << hex(line.clientId) << ' ';
    std::string classes;
    for (const radius::Buffer& value : session.classes) {
        classes += (classes.empty() ? "" : ",") + hex(value);
    }
    text << (classes.empty() ? "-" : classes) << ' ' << session.seconds << ' '
         << hex(session.userName) << ' ' << hex(session.nasPortId);
    return text.str();
}

std::vector<std::string_view> split(std::string_view text, char by) {
    std::vector<std::string_view> parts;
    while (true) {
        const size_t at = text.find(by);
        parts.push_back(text.substr(0, at));
        if (at == std::string_view::npos) {
            return parts;
        }
        text.remove_prefix(at + 1);
    }
}

// Reads words one after the other; whatever is wrong is remembered.
class Words {
public:
    Words(std::string_view line, size_t count) : words_(split(line, ' ')) {
        good_ = words_.size() == count;
    }

    template <typename Number>
    Number number(Number most) {
        const std::string_view word = next();
        Number value = 0;
        const auto [stop, error] = std::from_chars(word.data(), word.data() + word.size(), value);
        good_ = good_ && error == std::errc() && stop == word.data() + word.size() && value >= 0 &&
                value <= most;
        return value;
    }
    std::string_view next() { return good_ ? words_[at_++] : std::string_view(); }
    std::string text() {
        const radius::Buffer bytes = bytesOf(next());
        return {bytes.begin(), bytes.end()};
    }
    radius::Buffer bytesOf(std::string_view word) {
        radius::Buffer bytes;
        if (word == ".") {
            return bytes;
        }
        good_ = good_ && !word.empty() && word.size() % 2 == 0;
        for (size_t i = 0; good_ && i < word.size(); i += 2) {
            uint8_t byte = 0;
            const auto [stop, error] = std::from_chars(&word[i], &word[i] + 2, byte, 16);
            good_ = error == std::errc() && stop == &word[i] + 2;
            bytes.push_back(byte);
        }
        return bytes;
    }
    void require(bool holds) { good_ = good_ && holds; }
    bool good() const { return good_; }

private:
    std::vector<std::string_view> words_;
    size_t at_ = 0;
    bool good_;
};

std::optional<StoredSession> sessionOf(std::string_view text, bool first) {
    Words words(text, first ? wordsOfTheFirst : wordsOfALine);
    StoredSession session;
    constexpr int64_t anyTime = INT64_MAX;
    constexpr uint64_t any = UINT64_MAX;
    session.id = words.next();
    words.require(!session.id.empty() && session.id.size() <= radius::longestValue);
    session.ifId = words.number(99U);
    session.began = words.number(anyTime);
    const int start = words.number(first ? 1 : 2);
    session.announced = start == 1;
    session.sent = first || start != 0;
    session.ended = words.number(anyTime);
    session.cause = static_cast<radius::TerminateCause>(words.number(255U));
    session.traffic = {words.number(any), words.number(any), words.number(any), words.number(any)};
    session.line.interfaceNumber = session.ifId;
    session.line.interfaceName = words.text();
    session.line.circuitId = words.text();
    session.line.remoteId = words.text();
    const radius::Buffer mac = words.bytesOf(words.next());
    if (!mac.empty()) {
        radius::MacAddress address{};
        words.require(mac.size() == address.size());
        std::copy_n(mac.begin(), std::min(mac.size(), address.size()), address.begin());
        session.line.mac = address;
    }
    const uint32_t address = words.number(UINT32_MAX);
    if (address != 0) {
        session.line.address = address;
    }
    session.line.vlan = static_cast<uint16_t>(words.number(4095U));
    session.line.vendorClass = words.text();
    session.line.clientId = words.text();
    const std::string_view classes = words.next();
    if (classes != "-") {
        for (const std::string_view value : split(classes, ',')) {
            session.classes.push_back(words.bytesOf(value));
            words.require(session.classes.back().size() <= radius::longestValue);
        }
    }
    if (first) {
        const int64_t lived = session.ended - std::min(session.began, session.ended);
        session.seconds = static_cast<uint32_t>(std::min<int64_t>(lived, UINT32_MAX));
    } else {
        session.seconds = words.number(UINT32_MAX);
        session.userName = words.text();
        session.nasPortId = words.text();
    }
    words.require(session.ifId != 0);
    return words.good() ? std::optional(std::move(session)) : std::nullopt;
}

[[noreturn]] void fail(const std::string& path, const std::string& what) {
    throw SessionFileError(path + ": " + what);
}

[[noreturn]] void failOfSystem(const std::string& path) {
    fail(path, std::generic_category().message(errno));
}

void writeAll(int fd, std::string_view text, const std::string& path) {
    while (!text.empty()) {
        const ssize_t written = write(fd, text.data(), text.size());
        if (written < 0 && errno != EINTR) {
            failOfSystem(path);
        }
        text.remove_prefix(static_cast<size_t>(std::max<ssize_t>(written, 0)));
    }
}

}  // namespace

std::string sessionText(const std::vector<StoredSession>& sessions) {
    std::string text(heading);
    text += '\n';
    for (const StoredSession& session : sessions) {
        text += lineOf(session) + '\n';
    }
    return text.append(end) + std::to_string(sessions.size()) + '\n';
}

std::vector<StoredSession> sessionsFromText(std::string_view text, const std::string& path) {
    std::vector<StoredSession> sessions;
    const std::vector<std::string_view> lines = split(text, '\n');
    const bool first = lines.front() == firstHeading;
    if (!first && lines.front() != heading) {
        fail(path, "is no file of sessions");
    }
    for (size_t i = 1; i < lines.size(); ++i) {
        if (lines[i] == std::string(end) + std::to_string(sessions.size()) &&
            i + 2 == lines.size() && lines.back().empty()) {
            return sessions;
        }
        std::optional<StoredSession> session = sessionOf(lines[i], first);
        if (!session) {
            fail(path, "is damaged in line " + std::to_string(i + 1) +
                           "; moved away, the node begins without sessions");
        }
        sessions.push_back(std::move(*session));
    }
    fail(path, "has no end; moved away, the node begins without sessions");
}

std::vector<StoredSession> readSessionFile(const std::string& path) {
    std::error_code error;
    const auto status = std::filesystem::status(path, error);
    if (status.type() == std::filesystem::file_type::not_found) {
        return {};
    }
    if (!std::filesystem::status_known(status)) {
        fail(path, error.message());
    }
    if (!std::filesystem::is_regular_file(status)) {
        fail(path, "is not a regular file");
    }
    std::ifstream file(path, std::ios::binary);
    if (!file || std::filesystem::file_size(path, error) > longestFile || error) {
        fail(path, "cannot be read");
    }
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    return sessionsFromText(text, path);
}

void writeSessionFile(const std::string& path, const std::vector<StoredSession>& sessions) {
    const std::string fresh = path + ".new";
    const radius::Socket file(
        open(fresh.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!file) {
        failOfSystem(fresh);
    }
    writeAll(file.get(), sessionText(sessions), fresh);
    if (fsync(file.get()) != 0) {
        failOfSystem(fresh);
    }
    if (rename(fresh.c_str(), path.c_str()) != 0) {
        failOfSystem(path);
    }
    const std::filesystem::path directory = std::filesystem::path(path).parent_path();
    const radius::Socket place(
        open(directory.empty() ? "." : directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    // A directory that cannot be synced only makes the rename a little less durable.
    if (place) {
        (void)fsync(place.get());
    }
}

}  // namespace node

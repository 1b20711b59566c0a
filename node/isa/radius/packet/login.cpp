// Values that are not known are left out rather than sent empty, since an empty attribute is
// refused by some servers. NAS-Port is the number of the interface; NAS-Port-Id its name.
// Tested by tests/radius/login_test.cpp; FreeRADIUS reads the result in the scenario tests.
#include "node/isa/radius/packet/login.h"

#include <algorithm>

namespace node::radius {

namespace {

bool addIfSet(AttributeWriter& writer, AttributeName name, std::string_view text) {
    return text.empty() || writer.addText(name, text);
}

bool addIfSet(AttributeWriter& writer, AttributeName name, const Buffer& value) {
    return value.empty() || writer.add(name, value);
}

bool addLine(AttributeWriter& writer, const Line& line, const LoginFormat& format) {
    const std::string userName = format.userName.fill(line, format.nasIdentifier);
    const std::string nasPortId = format.nasPortId.fill(line, format.nasIdentifier);
    return !userName.empty() && writer.addText(attribute::userName, userName) &&
           addIfSet(writer, attribute::nasIdentifier, format.nasIdentifier) &&
           addIfSet(writer, attribute::nasIpAddress, format.nasIpAddress) &&
           addIfSet(writer, attribute::nasIpv6Address, format.nasIpv6Address) &&
           writer.addNumber(attribute::nasPort, line.interfaceNumber) &&
           addIfSet(writer, attribute::nasPortId, nasPortId) &&
           addIfSet(writer, attribute::agentCircuitId, line.circuitId) &&
           addIfSet(writer, attribute::agentRemoteId, line.remoteId) &&
           addIfSet(writer, attribute::callingStationId, line.mac ? macText(*line.mac) : "") &&
           (!line.address || writer.addNumber(attribute::framedIpAddress, *line.address)) &&
           (!format.vendorClass || addIfSet(writer, *format.vendorClass, line.vendorClass)) &&
           (!format.clientId || addIfSet(writer, *format.clientId, line.clientId));
}

bool readable(Bytes text) {
    return !text.empty() &&
           std::none_of(text.begin(), text.end(), [](uint8_t c) { return c < 32 || c == 127; });
}

// Empty when one of the texts is not readable.
std::optional<std::vector<std::string>> texts(const PacketView& answer, AttributeName name) {
    std::vector<std::string> result;
    for (const Bytes value : answer.all(name)) {
        if (!readable(value)) {
            return std::nullopt;
        }
        result.push_back(textOf(value));
    }
    return result;
}

bool addTraffic(AttributeWriter& writer, const AccountingRecord& record) {
    return writer.addNumber(attribute::acctSessionTime, record.sessionSeconds) &&
           writer.addNumber(attribute::acctInputOctets,
                            static_cast<uint32_t>(record.inputOctets)) &&
           writer.addNumber(attribute::acctOutputOctets,
                            static_cast<uint32_t>(record.outputOctets)) &&
           writer.addNumber(attribute::acctInputGigawords,
                            static_cast<uint32_t>(record.inputOctets >> 32)) &&
           writer.addNumber(attribute::acctOutputGigawords,
                            static_cast<uint32_t>(record.outputOctets >> 32)) &&
           writer.addNumber(attribute::acctInputPackets, record.inputPackets) &&
           writer.addNumber(attribute::acctOutputPackets, record.outputPackets);
}

}  // namespace

std::optional<Buffer> loginAttributes(const Line& line, const LoginFormat& format) {
    AttributeWriter writer;
    if (!addLine(writer, line, format)) {
        return std::nullopt;
    }
    return writer.take();
}

std::optional<Grant> readGrant(const PacketView& answer, const LoginFormat& format) {
    Grant grant;
    for (const Bytes value : answer.all(attribute::classOfLogin)) {
        grant.classes.emplace_back(value.begin(), value.end());
    }
    if (const std::optional<Bytes> value = answer.first(attribute::sessionTimeout)) {
        grant.sessionTimeout = numberOf(*value);
        if (!grant.sessionTimeout) {
            return std::nullopt;
        }
    }
    std::optional<std::vector<std::string>> filterIds = texts(answer, attribute::filterId);
    std::optional<std::vector<std::string>> profiles = texts(answer, format.profiles);
    if (!filterIds || !profiles) {
        return std::nullopt;
    }
    grant.filterIds = std::move(*filterIds);
    grant.profiles = std::move(*profiles);
    return grant;
}

std::optional<Buffer> accountingAttributes(const Line& line, const LoginFormat& format,
                                           const AccountingRecord& record) {
    AttributeWriter writer;
    bool fits = !record.sessionId.empty() &&
                writer.addNumber(attribute::acctStatusType, static_cast<uint32_t>(record.status)) &&
                writer.addText(attribute::acctSessionId, record.sessionId) &&
                writer.addNumber(attribute::eventTimestamp, record.eventTime) &&
                addLine(writer, line, format);
    for (const Buffer& value : record.classes) {
        fits = fits && writer.add(attribute::classOfLogin, value);
    }
    if (record.status == AccountingStatus::interim || record.status == AccountingStatus::stop) {
        fits = fits && addTraffic(writer, record);
    }
    if (record.status == AccountingStatus::stop && record.cause) {
        fits = fits && writer.addNumber(attribute::acctTerminateCause,
                                        static_cast<uint32_t>(*record.cause));
    }
    if (!fits) {
        return std::nullopt;
    }
    return writer.take();
}

}  // namespace node::radius

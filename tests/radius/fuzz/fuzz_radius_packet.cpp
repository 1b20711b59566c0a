// Any bytes as a packet: every reader keeps to its bounds, what is found lies inside the packet,
// and attributes that are written again are the same bytes.
#include <algorithm>
#include <memory>

#include "node/isa/radius/packet/dynamic.h"
#include "node/isa/radius/packet/signer.h"
#include "tests/fuzz/fuzz.h"

namespace {

using namespace node::radius;

void requireInside(const PacketView& view, Bytes value) {
    const Bytes all = view.bytes();
    fuzz::require(value.empty() || (value.data() >= all.data() &&
                                    value.data() + value.size() <= all.data() + all.size()),
                  "a value lies outside its packet");
}

void readAll(const PacketView& view) {
    AttributeWriter again;
    size_t entries = 0;
    view.forEach([&](const PacketView::Entry& entry) {
        requireInside(view, entry.value);
        fuzz::require(again.add({0, entry.type}, entry.value) || entry.type == 0,
                      "an attribute that was read cannot be written");
        fuzz::require(view.count(entry.type) == view.all({0, entry.type}).size(),
                      "the counts differ");
        return ++entries < 64;
    });
    if (entries < 64) {
        fuzz::require(std::ranges::equal(again.bytes(), view.attributes()),
                      "written again the attributes differ");
    }
    for (const AttributeName name : {attribute::agentCircuitId, attribute::agentRemoteId,
                                     AttributeName{9999, 1}, attribute::userName}) {
        const auto all = view.all(name);
        const auto first = view.first(name);
        fuzz::require(all.empty() == !first, "the first and all differ");
        fuzz::require(!first || std::ranges::equal(all.front(), *first), "another is first");
        for (const Bytes value : all) {
            requireInside(view, value);
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::unique_ptr<uint8_t[]> copy(new uint8_t[size]);
    std::copy(data, data + size, copy.get());
    const auto view = PacketView::parse({copy.get(), size});
    if (!view) {
        return 0;
    }
    readAll(*view);
    LoginFormat format;
    format.nasIdentifier = "nas";
    format.profiles = {9999, 1};
    const auto grant = readGrant(*view, format);
    const DynamicReading reading = readDynamicRequest(*view, format);
    fuzz::require(
        !reading.request || reading.request->kind == DynamicRequest::Kind::disconnect || grant,
        "a change was taken whose grant is bad");

    static Signer signer{Secret("a secret for fuzzing")};
    for (const Demand demand : {Demand::messageAuthenticator, Demand::ifPresent}) {
        signer.proveAnswer(*view, view->authenticator(), demand);
        signer.proveRequest(*view, demand);
    }
    if (const auto hidden = view->first(attribute::userPassword)) {
        signer.revealed(*hidden, view->authenticator());
    }
    return 0;
}

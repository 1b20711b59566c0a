// What every layout keeps, so that a newer node can take over the lines of an older one: the
// names of the maps; magic and layout as the first two words of talMeta; talSlots from
// interface index to line; the gate as the first word of a line's record.
#include "node/engine/kernel/gate_maps.h"

#include <bpf/bpf.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>

namespace node {
namespace {

constexpr std::string_view programName = "talIngress";
constexpr std::string_view outwardProgramName = "talEgress";
constexpr uint32_t maxMaps = 64;

std::optional<bpf_map_info> infoOf(int map) {
    bpf_map_info info{};
    uint32_t size = sizeof info;
    if (map < 0 || bpf_obj_get_info_by_fd(map, &info, &size) != 0) {
        return std::nullopt;
    }
    return info;
}

struct Used {
    std::string program;
    std::vector<uint32_t> ids;  // of its maps
};

std::optional<Used> mapsOf(const Fd& program) {
    std::vector<uint32_t> ids(maxMaps);
    bpf_prog_info info{};
    info.nr_map_ids = maxMaps;
    info.map_ids = reinterpret_cast<uintptr_t>(ids.data());
    uint32_t size = sizeof info;
    if (!program || bpf_obj_get_info_by_fd(program.get(), &info, &size) != 0) {
        return std::nullopt;
    }
    ids.resize(std::min(info.nr_map_ids, maxMaps));
    return Used{info.name, std::move(ids)};
}

std::string pinPath(const std::string& directory, GateMaps::Map map) {
    return directory + "/" + std::string(GateMaps::name(map));
}

}  // namespace

std::string_view GateMaps::name(Map map) {
    static constexpr std::array<std::string_view, mapCount> names{
        "talMeta", "talSlots", "talLines", "talRules", "talCounters", "talEvents"};
    return names[map];
}

GateMaps::Owner GateMaps::ownerOf(uint32_t programId) {
    const Fd program(bpf_prog_get_fd_by_id(programId));
    if (!program && errno == EPERM) {
        return Owner::hidden;
    }
    bpf_prog_info info{};
    uint32_t size = sizeof info;
    const bool known = program && bpf_obj_get_info_by_fd(program.get(), &info, &size) == 0 &&
                       (programName == info.name || outwardProgramName == info.name);
    return known ? Owner::node : Owner::others;
}

std::optional<GateMaps> GateMaps::ofProgram(uint32_t programId, bool& refused) {
    const Fd program(bpf_prog_get_fd_by_id(programId));
    refused = !program && errno == EPERM;
    const auto used = mapsOf(program);
    if (!used || programName != used->program) {
        return std::nullopt;
    }
    GateMaps maps;
    for (const uint32_t id : used->ids) {
        Fd map(bpf_map_get_fd_by_id(id));
        const auto mapInfo = infoOf(map.get());
        for (size_t kind = 0; mapInfo && kind < mapCount; ++kind) {
            if (name(static_cast<Map>(kind)) == mapInfo->name) {
                maps.fds_[kind] = std::move(map);
                break;
            }
        }
    }
    if (!maps.fds_[meta]) {
        return std::nullopt;
    }
    return maps;
}

std::optional<GateMaps> GateMaps::pinnedIn(const std::string& directory) {
    GateMaps maps;
    for (size_t kind = 0; kind < mapCount; ++kind) {
        maps.fds_[kind] = Fd(bpf_obj_get(pinPath(directory, static_cast<Map>(kind)).c_str()));
    }
    if (!maps.fds_[meta]) {
        return std::nullopt;
    }
    return maps;
}

bool GateMaps::complete() const {
    for (const Fd& fd : fds_) {
        if (!fd) {
            return false;
        }
    }
    return true;
}

uint32_t GateMaps::layout() const {
    const auto info = infoOf(fd(meta));
    if (!info || info->value_size < sizeof(KernelMeta)) {
        return 0;
    }
    std::vector<uint8_t> value(info->value_size);
    const uint32_t key = 0;
    if (bpf_map_lookup_elem(fd(meta), &key, value.data()) != 0) {
        return 0;
    }
    KernelMeta found;
    std::memcpy(&found, value.data(), sizeof found);
    return found.magic == KERNEL_MAGIC ? found.layout : 0;
}

uint32_t GateMaps::id() const {
    const auto info = infoOf(fd(lines));
    return info ? info->id : 0;
}

std::optional<bool> GateMaps::usedBy(uint32_t programId) const {
    const auto used = mapsOf(Fd(bpf_prog_get_fd_by_id(programId)));
    if (!used) {
        return std::nullopt;
    }
    return std::find(used->ids.begin(), used->ids.end(), id()) != used->ids.end();
}

bool GateMaps::sameAs(const GateMaps& other) const {
    return id() != 0 && id() == other.id();
}

std::optional<uint32_t> GateMaps::lineOf(unsigned ifIndex) const {
    const auto info = infoOf(fd(slots));
    uint32_t line = 0;
    if (!info || info->key_size != sizeof ifIndex || info->value_size != sizeof line ||
        bpf_map_lookup_elem(fd(slots), &ifIndex, &line) != 0) {
        return std::nullopt;
    }
    return line;
}

void GateMaps::forget(unsigned ifIndex) const {
    if (lineOf(ifIndex)) {
        bpf_map_delete_elem(fd(slots), &ifIndex);
    }
}

std::vector<uint8_t> GateMaps::recordOf(unsigned ifIndex) const {
    const auto line = lineOf(ifIndex);
    const auto info = infoOf(fd(lines));
    if (!line || !info) {
        return {};
    }
    std::vector<uint8_t> value(info->value_size);
    if (bpf_map_lookup_elem(fd(lines), &*line, value.data()) != 0) {
        return {};
    }
    return value;
}

KernelGate GateMaps::gateOf(unsigned ifIndex) const {
    const std::vector<uint8_t> value = recordOf(ifIndex);
    uint32_t gate = KERNEL_GATE_BLOCKED;
    if (value.size() >= sizeof gate) {
        std::memcpy(&gate, value.data(), sizeof gate);
    }
    return gate <= KERNEL_GATE_REJECTED ? static_cast<KernelGate>(gate) : KERNEL_GATE_BLOCKED;
}

std::optional<uint32_t> GateMaps::carrierDownsOf(unsigned ifIndex) const {
    const std::vector<uint8_t> value = recordOf(ifIndex);
    KernelLineRecord record;
    if (layout() != KERNEL_LAYOUT || value.size() != sizeof record) {
        return std::nullopt;
    }
    std::memcpy(&record, value.data(), sizeof record);
    return record.carrierDowns;
}

bool GateMaps::pin(const std::string& directory, std::string& error) const {
    for (size_t kind = 0; kind < mapCount; ++kind) {
        const std::string path = pinPath(directory, static_cast<Map>(kind));
        std::error_code ignored;  // nothing to remove is no error; a failure shows below
        std::filesystem::remove(path, ignored);
        if (bpf_obj_pin(fds_[kind].get(), path.c_str()) != 0) {
            error = path + ": " + std::strerror(errno);
            return false;
        }
    }
    return true;
}

}  // namespace node

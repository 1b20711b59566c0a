// Opening a gate is one store into memory shared with the kernel; everything else is a system
// call. Decisions:
// - The programs are always this build's; only maps are taken over, when their layout is this
//   build's too. attach() exchanges the program of an interface in one step, so a line is never
//   without a gate. A line in maps of another layout takes its gate along, before the exchange;
//   afterwards those maps forget its interface, or whoever uses them later would find what was
//   decided then.
// - A process that ran on two interfaces leaves one set of maps on both. Whoever comes first for
//   either takes the set; a second process on the other makes its own, or each would hear the
//   other's frames and one's record would open the other's gate.
// - A line is entered in the maps before its program is attached: what has no record is closed.
//   The hook comes even before, as it may be refused and entering a line takes its record
//   from the interface that it had.
// - A gate that stayed open while no process watched stays open, unless the interface says that
//   it lost its link since: then somebody else may be at its end.
// - Whoever restarts has no requests open: a gate found pending or rejected is blocked.
// - A frame sent through the gate again passes the program again and would be counted twice;
//   the record counts such frames, and totals() takes them off. So none is sent while the program
//   is not there.
// - What an earlier process made of the frames it was handed died with its ports. totals() counts
//   them as the program can tell: sent on, or dropped while a request was open. Frames it never
//   read wait in the ring buffer; whoever gets them now counts them.
//
// Tests: tests/kernel.
#include "node/engine/kernel/kernel_engine.h"

#include <bpf/bpf.h>
#include <bpf/libbpf.h>
#include <fcntl.h>
#include <net/if.h>
#include <sys/mman.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>

#include <gate_programs.skel.h>

#include "node/engine/kernel/frame_checksum.h"
#include "node/engine/kernel/kernel_rules.h"
#include "node/engine/kernel/libbpf_text.h"
#include "node/engine/kernel/tc_hook.h"
#include "node/engine/port.h"

namespace node {
namespace {

// The program's numbers are the engine's.
constexpr bool is(KernelCounter mine, Counter counter) {
    return static_cast<size_t>(mine) == static_cast<size_t>(counter);
}
static_assert(is(KERNEL_FRAMES_SEEN, Counter::framesSeen));
static_assert(is(KERNEL_FRAMES_MATCHED, Counter::framesMatched));
static_assert(is(KERNEL_QUEUE_OVERFLOWS, Counter::queueOverflows));
static_assert(is(KERNEL_DROPPED_BLOCKED, Counter::droppedBlocked));
static_assert(is(KERNEL_DROPPED_PENDING, Counter::droppedPending));
static_assert(is(KERNEL_DROPPED_REJECTED, Counter::droppedRejected));
static_assert(is(KERNEL_FORWARDED, Counter::forwarded));
static_assert(static_cast<size_t>(KERNEL_TRAPPED) == counterCount);

constexpr bool is(Gate gate, KernelGate mine, PortState state) {
    return static_cast<size_t>(gate) == static_cast<size_t>(state) &&
           static_cast<size_t>(gate) == static_cast<size_t>(mine);
}
static_assert(is(Gate::blocked, KERNEL_GATE_BLOCKED, PortState::blocked));
static_assert(is(Gate::pending, KERNEL_GATE_PENDING, PortState::pending));
static_assert(is(Gate::open, KERNEL_GATE_OPEN, PortState::open));
static_assert(is(Gate::rejected, KERNEL_GATE_REJECTED, PortState::rejected));

constexpr size_t linesBytes = KERNEL_LINES * sizeof(KernelLineRecord);

template <typename Word>
Word loadWord(Word& word) {
    return std::atomic_ref<Word>(word).load();
}

template <typename Word>
void storeWord(Word& word, Word value) {
    std::atomic_ref<Word>(word).store(value);
}

constexpr Direction directions[] = {Direction::fromSubscriber, Direction::toSubscriber};

bool hasProgram(unsigned ifIndex, Direction direction, bool ofNode) {
    const auto id = attachedProgram(ifIndex, direction);
    return id && (GateMaps::ownerOf(*id) != GateMaps::Owner::others) == ofNode;
}

// In either direction.
bool hasProgram(unsigned ifIndex, bool ofNode) {
    return std::any_of(std::begin(directions), std::end(directions),
                       [&](Direction direction) { return hasProgram(ifIndex, direction, ofNode); });
}

bool hasOthersProgram(unsigned ifIndex, std::string& error) {
    if (!hasProgram(ifIndex, false)) {
        return false;
    }
    error = "interface " + std::to_string(ifIndex) + ": another program is attached";
    return true;
}

// 0: cannot be told.
uint32_t idOf(int program) {
    bpf_prog_info info{};
    uint32_t size = sizeof info;
    return bpf_obj_get_info_by_fd(program, &info, &size) == 0 ? info.id : 0;
}

bpf_map* mapOf(bpf_object* object, GateMaps::Map map) {
    return bpf_object__find_map_by_name(object, std::string(GateMaps::name(map)).c_str());
}

}  // namespace

KernelEngine::KernelEngine(Options options, Trapped trapped)
    : options_(std::move(options)), trapped_(std::move(trapped)) {}

KernelEngine::~KernelEngine() {
    ring_buffer__free(events_);
    if (lines_ != nullptr) {
        munmap(lines_, linesBytes);
    }
    bpf_object__close(object_);
}

std::unique_ptr<KernelEngine> KernelEngine::start(std::span<const unsigned> interfaces,
                                                  const Options& options, Trapped trapped,
                                                  std::string& error) {
    std::unique_ptr<KernelEngine> engine(new KernelEngine(options, std::move(trapped)));
    if (!engine->load(interfaces, error) || !engine->openEvents(error)) {
        return nullptr;
    }
    return engine;
}

bool KernelEngine::claimed(const GateMaps& maps) const {
    return !options_.claim || options_.claim("maps " + std::to_string(maps.id()));
}

bool KernelEngine::usable(const std::optional<GateMaps>& maps) const {
    return maps && maps->complete() && maps->layout() == KERNEL_LAYOUT && claimed(*maps);
}

void KernelEngine::findMaps(std::span<const unsigned> interfaces) {
    if (!options_.pinDirectory.empty()) {
        auto pinned = GateMaps::pinnedIn(options_.pinDirectory);
        if (usable(pinned)) {
            maps_ = std::move(*pinned);
            pinned_ = true;
            return;
        }
        older_ = std::move(pinned);
    }
    for (const unsigned ifIndex : interfaces) {
        bool refused = false;
        const auto id = attachedProgram(ifIndex, Direction::fromSubscriber);
        auto maps = id ? GateMaps::ofProgram(*id, refused) : std::nullopt;
        if (usable(maps)) {
            maps_ = std::move(*maps);
            return;
        }
    }
}

bool KernelEngine::load(std::span<const unsigned> interfaces, std::string& error) {
    findMaps(interfaces);
    const bool found = maps_.complete();
    if (!loadPrograms(found, error) || !readProgramIds(error) || (!found && !takeNewMaps(error)) ||
        !shareLines(error)) {
        return false;
    }
    return pinned_ || options_.pinDirectory.empty() || maps_.pin(options_.pinDirectory, error);
}

bool KernelEngine::loadPrograms(bool reuseMaps, std::string& error) {
    const LibbpfText quiet;
    size_t size = 0;
    const void* elf = gate_programs__elf_bytes(&size);
    object_ = bpf_object__open_mem(elf, size, nullptr);
    if (object_ == nullptr) {
        error = "the kernel's programs: " + libbpfError(-errno);
        return false;
    }
    for (size_t kind = 0; reuseMaps && kind < GateMaps::mapCount; ++kind) {
        const auto map = static_cast<GateMaps::Map>(kind);
        if (const int result = bpf_map__reuse_fd(mapOf(object_, map), maps_.fd(map))) {
            error = "maps of the earlier process: " + libbpfError(result);
            return false;
        }
    }
    if (const int result = bpf_object__load(object_)) {
        error = "programs refused by the kernel: " + libbpfError(result);
        return false;
    }
    return true;
}

bool KernelEngine::takeNewMaps(std::string& error) {
    for (size_t kind = 0; kind < GateMaps::mapCount; ++kind) {
        const auto map = static_cast<GateMaps::Map>(kind);
        maps_.take(map, Fd(fcntl(bpf_map__fd(mapOf(object_, map)), F_DUPFD_CLOEXEC, 0)));
    }
    const uint32_t key = 0;
    const KernelMeta meta{KERNEL_MAGIC, KERNEL_LAYOUT};
    if (!maps_.complete() ||
        bpf_map_update_elem(maps_.fd(GateMaps::meta), &key, &meta, BPF_ANY) != 0) {
        error = std::string("maps: ") + std::strerror(errno);
        return false;
    }
    if (!claimed(maps_)) {
        error = "new maps are another process's";
        return false;
    }
    return true;
}

bool KernelEngine::shareLines(std::string& error) {
    // The program does not use this map, but the next process looks for it in the program.
    if (bpf_prog_bind_map(program(), maps_.fd(GateMaps::meta), nullptr) != 0) {
        error = std::string("layout not tied to the program: ") + std::strerror(errno);
        return false;
    }
    void* memory =
        mmap(nullptr, linesBytes, PROT_READ | PROT_WRITE, MAP_SHARED, maps_.fd(GateMaps::lines), 0);
    if (memory == MAP_FAILED) {
        error = std::string("memory of the lines: ") + std::strerror(errno);
        return false;
    }
    lines_ = static_cast<KernelLineRecord*>(memory);
    return true;
}

bool KernelEngine::openEvents(std::string& error) {
    const LibbpfText quiet;
    events_ = ring_buffer__new(maps_.fd(GateMaps::events), collect, this, nullptr);
    if (events_ == nullptr) {
        error = "ring buffer: " + libbpfError(-errno);
    }
    return events_ != nullptr;
}

bool KernelEngine::known(unsigned ifId) const {
    return ifId < KERNEL_LINES && attached_[ifId];
}

std::optional<KernelEngine::Before> KernelEngine::lookAt(const Line& line,
                                                         std::string& error) const {
    if (hasOthersProgram(line.ifIndex, error)) {
        return std::nullopt;
    }
    Before before;
    const auto id = attachedProgram(line.ifIndex, Direction::fromSubscriber);
    if (!id) {
        return before;
    }
    bool refused = false;
    auto there = GateMaps::ofProgram(*id, refused);
    const bool ours = there ? there->sameAs(maps_) : maps_.lineOf(line.ifIndex).has_value();
    if (!ours) {
        before.others = std::move(there);
    }
    const GateMaps* source = ours            ? &maps_
                             : before.others ? &*before.others
                             : older_        ? &*older_
                                             : nullptr;
    if (source == nullptr) {
        before.found = Found::unreadable;
        return before;
    }
    if (source->lineOf(line.ifIndex) != line.ifId) {
        return before;  // another line's gate: nothing was decided about this one
    }
    before.gate = source->gateOf(line.ifIndex);
    const auto downs = source->carrierDownsOf(line.ifIndex);
    before.found = downs && *downs != line.carrierDowns ? Found::linkLost
                   : ours                               ? Found::own
                                                        : Found::older;
    return before;
}

bool KernelEngine::enter(const Line& line, KernelGate gate, Found found, std::string& error) {
    KernelLineRecord& entry = record(line.ifId);
    const bool stays = gate == KERNEL_GATE_OPEN && (found == Found::own || found == Found::older);
    if (!stays) {
        storeWord<uint32_t>(entry.gate, KERNEL_GATE_BLOCKED);
    }
    storeWord<int64_t>(entry.traps, 0);
    if (!writeRules(line.ifId, {})) {
        error = std::string("rules: ") + std::strerror(errno);
        return false;
    }
    storeWord<uint32_t>(entry.outwardOpen, line.outwardOpen ? 1 : 0);
    storeWord(entry.carrierDowns, line.carrierDowns);
    const unsigned earlier = loadWord(entry.ifIndex);
    if (earlier != 0 && earlier != line.ifIndex && maps_.lineOf(earlier) == line.ifId) {
        bpf_map_delete_elem(maps_.fd(GateMaps::slots), &earlier);
    }
    if (maps_.lineOf(line.ifIndex) != line.ifId &&
        bpf_map_update_elem(maps_.fd(GateMaps::slots), &line.ifIndex, &line.ifId, BPF_ANY) != 0) {
        error = std::string("interfaces: ") + std::strerror(errno);
        return false;
    }
    storeWord<uint32_t>(entry.ifIndex, line.ifIndex);
    if (stays) {
        storeWord<uint32_t>(entry.gate, KERNEL_GATE_OPEN);
    }
    return true;
}

bool KernelEngine::attachPrograms(unsigned ifIndex, std::string& error) {
    return attachProgram(ifIndex, Direction::fromSubscriber, programFd("talIngress"), error) &&
           attachProgram(ifIndex, Direction::toSubscriber, programFd("talEgress"), error);
}

std::optional<KernelEngine::Found> KernelEngine::attach(const Line& line, std::string& error) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (line.ifId == 0 || line.ifId >= KERNEL_LINES || line.ifIndex == 0) {
        error = "no line " + std::to_string(line.ifId) + " on interface " +
                std::to_string(line.ifIndex);
        return std::nullopt;
    }
    const auto before = lookAt(line, error);
    if (!before || !makeHook(line.ifIndex, error) ||
        !enter(line, before->gate, before->found, error) || !attachPrograms(line.ifIndex, error)) {
        return std::nullopt;
    }
    if (before->others) {
        before->others->forget(line.ifIndex);
    }
    if (older_) {
        older_->forget(line.ifIndex);
    }
    if (!attached_[line.ifId].exchange(true)) {
        countBefore(line.ifId);
    }
    return before->found;
}

// The line has no traps now: what waits in the ring buffer is all that this process will get of
// the frames handed up so far. They stay collected for the next poll().
void KernelEngine::countBefore(unsigned ifId) {
    ring_buffer__consume(events_);
    uint32_t unread = 0;
    eachCollected([&](const KernelTrap& trap, std::span<const uint8_t>) {
        unread += trap.ifId == ifId ? 1 : 0;
    });
    trappedBefore_[ifId] = sumOf(ifId).values[KERNEL_TRAPPED] - unread;
    reinjectedBefore_[ifId] = loadWord(record(ifId).reinjected);
}

bool KernelEngine::detach(unsigned ifId, std::string& error) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (!known(ifId)) {
        return true;
    }
    if (!freeInterface(loadWord(record(ifId).ifIndex), error)) {
        return false;
    }
    attached_[ifId] = false;
    return true;
}

// What somebody else put into a place of ours since is left there.
bool KernelEngine::freeInterface(unsigned ifIndex, std::string& error) {
    for (const Direction direction : directions) {
        if (hasProgram(ifIndex, direction, true) && !detachProgram(ifIndex, direction, error)) {
            return false;
        }
    }
    forget(ifIndex);
    return true;
}

void KernelEngine::forget(unsigned ifIndex) {
    const auto ifId = maps_.lineOf(ifIndex);
    bpf_map_delete_elem(maps_.fd(GateMaps::slots), &ifIndex);
    if (!ifId || *ifId >= KERNEL_LINES) {
        return;
    }
    const std::vector<KernelCounters> zeroes(
        static_cast<size_t>(std::max(libbpf_num_possible_cpus(), 1)));
    bpf_map_update_elem(maps_.fd(GateMaps::counters), &*ifId, zeroes.data(), BPF_ANY);
    KernelLineRecord& entry = record(*ifId);
    storeWord<uint32_t>(entry.gate, KERNEL_GATE_BLOCKED);
    storeWord<uint32_t>(entry.reinjected, 0);
    storeWord<uint32_t>(entry.ifIndex, 0);
}

bool KernelEngine::readProgramIds(std::string& error) {
    ingressId_ = idOf(programFd("talIngress"));
    egressId_ = idOf(programFd("talEgress"));
    if (ingressId_ == 0 || egressId_ == 0) {
        error = std::string("the programs' numbers: ") + std::strerror(errno);
        return false;
    }
    return true;
}

bool KernelEngine::inPlace(unsigned ifId) const {
    if (!known(ifId)) {
        return false;
    }
    const unsigned ifIndex = loadWord(record(ifId).ifIndex);
    return !isWithout(ifIndex, Direction::fromSubscriber, ingressId_) &&
           !isWithout(ifIndex, Direction::toSubscriber, egressId_);
}

bool KernelEngine::restore(unsigned ifId, std::string& error) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (!known(ifId)) {
        error = "line " + std::to_string(ifId) + " has no gate";
        return false;
    }
    const unsigned ifIndex = loadWord(record(ifId).ifIndex);
    return !hasOthersProgram(ifIndex, error) && attachPrograms(ifIndex, error);
}

bool KernelEngine::setGate(unsigned ifId, Gate gate) {
    if (!known(ifId)) {
        return false;
    }
    storeWord(record(ifId).gate, static_cast<uint32_t>(gate));
    if (gate == Gate::open) {
        storeWord<int64_t>(record(ifId).traps, 0);
    }
    return true;
}

Gate KernelEngine::gate(unsigned ifId) const {
    return known(ifId) ? static_cast<Gate>(loadWord(record(ifId).gate)) : Gate::blocked;
}

bool KernelEngine::linkDown(unsigned ifId, uint32_t carrierDowns) {
    if (!setGate(ifId, Gate::blocked) || !arm(ifId, 0)) {
        return false;
    }
    storeWord(record(ifId).carrierDowns, carrierDowns);
    return true;
}

bool KernelEngine::writeRules(unsigned ifId, const KernelRules& rules) {
    KernelLineRecord& entry = record(ifId);
    const uint32_t next = loadWord(entry.rulesVersion) + 1;
    const uint32_t key = 2 * ifId + (next & 1);
    storeWord(entry.rulesBegun, next);
    if (bpf_map_update_elem(maps_.fd(GateMaps::rules), &key, &rules, BPF_ANY) != 0) {
        return false;
    }
    storeWord(entry.rulesVersion, next);
    return true;
}

bool KernelEngine::setRules(unsigned ifId, std::span<const ittalCondition> conditions) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto rules = kernelRules(conditions);
    return known(ifId) && rules && writeRules(ifId, *rules);
}

bool KernelEngine::arm(unsigned ifId, uint32_t frames) {
    if (!known(ifId)) {
        return false;
    }
    storeWord<int64_t>(record(ifId).traps, frames);
    return true;
}

bool KernelEngine::reinject(unsigned ifId, std::span<const uint8_t> frame, std::string& error) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (gate(ifId) != Gate::open) {
        error = "the gate of line " + std::to_string(ifId) + " is not open";
        return false;
    }
    if (!inPlace(ifId)) {
        error = "somebody took the gate of line " + std::to_string(ifId) + " off";
        return false;
    }
    std::vector<uint8_t> whole(frame.begin(), frame.end());
    completeChecksum(whole);
    xdp_md context{};
    context.data_end = static_cast<uint32_t>(whole.size());
    context.ingress_ifindex = loadWord(record(ifId).ifIndex);
    bpf_test_run_opts opts{};
    opts.sz = sizeof opts;
    opts.data_in = whole.data();
    opts.data_size_in = static_cast<uint32_t>(whole.size());
    opts.ctx_in = &context;
    opts.ctx_size_in = sizeof context;
    opts.repeat = 1;
    opts.flags = BPF_F_TEST_XDP_LIVE_FRAMES;
    opts.batch_size = 1;
    const int result = bpf_prog_test_run_opts(programFd("talPass"), &opts);
    if (result != 0) {
        error = "frame of " + std::to_string(frame.size()) +
                " bytes not let in again: " + std::strerror(-result);
        return false;
    }
    std::atomic_ref<uint32_t>(record(ifId).reinjected).fetch_add(1);
    return true;
}

KernelCounters KernelEngine::sumOf(unsigned ifId) const {
    std::vector<KernelCounters> perCpu(
        static_cast<size_t>(std::max(libbpf_num_possible_cpus(), 1)));
    KernelCounters sum{};
    if (bpf_map_lookup_elem(maps_.fd(GateMaps::counters), &ifId, perCpu.data()) != 0) {
        return sum;
    }
    for (const KernelCounters& cpu : perCpu) {
        for (size_t i = 0; i < KERNEL_COUNTERS; ++i) {
            sum.values[i] += cpu.values[i];
        }
        sum.inwardOctets += cpu.inwardOctets;
        sum.outwardOctets += cpu.outwardOctets;
    }
    return sum;
}

KernelEngine::Totals KernelEngine::totals(unsigned ifId) const {
    Totals totals;
    if (!known(ifId)) {
        return totals;
    }
    KernelCounters sum = sumOf(ifId);
    const uint32_t trappedBefore = trappedBefore_[ifId];
    const uint32_t reinjectedBefore = reinjectedBefore_[ifId];
    const uint32_t reinjected = loadWord(record(ifId).reinjected);
    sum.values[KERNEL_FRAMES_SEEN] += trappedBefore - reinjected;
    sum.values[KERNEL_FRAMES_MATCHED] += trappedBefore;
    sum.values[KERNEL_DROPPED_PENDING] += trappedBefore - reinjectedBefore;
    sum.values[KERNEL_FORWARDED] += reinjectedBefore - reinjected;
    std::copy_n(sum.values, totals.counters.size(), totals.counters.begin());
    totals.trapped = sum.values[KERNEL_TRAPPED];
    totals.trapsLost = sum.values[KERNEL_TRAPS_LOST];
    totals.droppedOutward = sum.values[KERNEL_DROPPED_OUTWARD];
    totals.passedOutward = sum.values[KERNEL_PASSED_OUTWARD];
    totals.inwardOctets = sum.inwardOctets;
    totals.outwardOctets = sum.outwardOctets;
    return totals;
}

// The interfaces are asked, and not the map of records: a line that was given another interface
// leaves its old one with the program and without a record, and other maps are not known here.
bool KernelEngine::isStray(unsigned ifIndex) const {
    const auto ifId = maps_.lineOf(ifIndex);
    return !(ifId && known(*ifId)) && hasProgram(ifIndex, true);
}

std::vector<unsigned> KernelEngine::strays() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    std::vector<unsigned> found;
    const auto names = if_nameindex();
    for (auto each = names; each != nullptr && each->if_index != 0; ++each) {
        if (isStray(each->if_index)) {
            found.push_back(each->if_index);
        }
    }
    if (names != nullptr) {
        if_freenameindex(names);
    }
    return found;
}

bool KernelEngine::inOwnMaps(unsigned ifIndex) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return std::any_of(std::begin(directions), std::end(directions), [&](Direction direction) {
        const auto id = attachedProgram(ifIndex, direction);
        return id && maps_.usedBy(*id).value_or(maps_.lineOf(ifIndex).has_value());
    });
}

bool KernelEngine::freeStray(unsigned ifIndex, std::string& error) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (!isStray(ifIndex)) {
        error = "interface " + std::to_string(ifIndex) + " has no gate to be freed";
        return false;
    }
    return freeInterface(ifIndex, error);
}

int KernelEngine::fd() const {
    return ring_buffer__epoll_fd(events_);
}

int KernelEngine::programFd(const char* name) const {
    return bpf_program__fd(bpf_object__find_program_by_name(object_, name));
}

int KernelEngine::program() const {
    return programFd("talIngress");
}

int KernelEngine::collect(void* self, void* data, size_t size) {
    auto& collected = static_cast<KernelEngine*>(self)->collected_;
    const auto* bytes = static_cast<const uint8_t*>(data);
    collected.insert(collected.end(), bytes, bytes + size);
    return 0;
}

void KernelEngine::eachCollected(
    const std::function<void(const KernelTrap&, std::span<const uint8_t>)>& use) const {
    std::span<const uint8_t> rest(collected_);
    while (rest.size() >= sizeof(KernelTrap)) {
        KernelTrap trap;
        std::memcpy(&trap, rest.data(), sizeof trap);
        rest = rest.subspan(sizeof trap);
        const size_t size = std::min<size_t>(trap.size, rest.size());
        use(trap, rest.first(size));
        rest = rest.subspan(size);
    }
}

size_t KernelEngine::poll() {
    ring_buffer__consume(events_);
    size_t frames = 0;
    eachCollected([&](const KernelTrap& trap, std::span<const uint8_t> frame) {
        trapped_(trap.ifId, frame);
        ++frames;
    });
    collected_.clear();
    return frames;
}

}  // namespace node

// vorn_partition_dydi: 16M {row id, hash} records (a column of hashes, row
// ids numbered by VORN_AUTORID) into 16, 256 and 4096 partitions, against a
// plain scalar scatter loop that writes the same records with the same room
// test, and a streaming copy of the same 256 MiB of records (memcpy): the
// physical limit of writing them once.
//
// Every large buffer (hashes, partition buffers, both sides of the copy) is
// taken as a host partitioning this much memory takes it: 2 MiB aligned,
// advised for transparent huge pages, and touched once before timing, so
// the three rows run on the same kind of pages, none of them faulting.
#include <sys/mman.h>

#include <cstdlib>
#include <cstring>
#include <memory>

#include "support/bench_support.h"

namespace {

using namespace vornbench;

constexpr ub4 kRows = 16u << 20;
constexpr std::size_t kRecordBytes = 16;

// Memory advised for huge pages and written once (zeros).
class HugeBuffer {
  public:
    explicit HugeBuffer(std::size_t bytes) : bytes_((bytes + kHuge - 1) & ~(kHuge - 1)) {
        p_ = static_cast<ub1 *>(std::aligned_alloc(kHuge, bytes_));
        madvise(p_, bytes_, MADV_HUGEPAGE);
        std::memset(p_, 0, bytes_);
    }
    ~HugeBuffer() { std::free(p_); }
    HugeBuffer(const HugeBuffer &) = delete;
    HugeBuffer &operator=(const HugeBuffer &) = delete;
    ub1 *data() const { return p_; }
    template <class T>
    T *as() const {
        return reinterpret_cast<T *>(p_);
    }

  private:
    static constexpr std::size_t kHuge = std::size_t{2} << 20;
    std::size_t bytes_;
    ub1 *p_;
};

struct Data {
    HugeBuffer hash_mem{kRows * 8};
    ub8 *hashes = hash_mem.as<ub8>();
    vorn_enc_ctx hash_enc{}, rid_enc{};
    std::unique_ptr<HugeBuffer> copy_src, copy_dst;
    Data() {
        for (ub4 i = 0; i < kRows; ++i) hashes[i] = rng()();
        hash_enc.flags = VORN_ALIGNED;
        hash_enc.bit_width = 64;
        rid_enc.flags = VORN_AUTORID;
    }
};
Data &data() {
    static Data d;
    return d;
}

// The partition buffers of one fan-out, with room for a fair share and some.
struct Parts {
    ub4 bits;
    std::size_t each;  // bytes per buffer
    HugeBuffer store;
    std::vector<ub1 *> starts, cursors, limits;
    static std::size_t share(ub4 bits) {
        // Each buffer starts on a cache line, as a host allocates them.
        return ((kRows * kRecordBytes >> bits) * 11 / 10 + 4096) & ~std::size_t{63};
    }
    explicit Parts(ub4 b) : bits(b), each(share(b)), store(each << b) {
        const std::size_t n = std::size_t{1} << bits;
        for (std::size_t p = 0; p < n; ++p) {
            starts.push_back(store.data() + p * each);
            limits.push_back(starts.back() + each);
        }
        cursors = starts;
    }
    void reset() { std::copy(starts.begin(), starts.end(), cursors.begin()); }
};
Parts &parts(ub4 bits) {
    static std::unique_ptr<Parts> cached;  // one fan-out in memory at a time
    if (!cached || cached->bits != bits) {
        cached.reset();
        cached = std::make_unique<Parts>(bits);
    }
    return *cached;
}

// The partition bits sit in the middle of the hash.
constexpr ub1 kLowBit = 20;

void kernel_run(benchmark::State &state, ub4 bits) {
    Data &d = data();
    Parts &p = parts(bits);
    vorn_vec src{}, rids{};
    src.data = d.hashes;
    src.enc_ctx = &d.hash_enc;
    src.size = kRows;
    rids.enc_ctx = &d.rid_enc;
    vorn_partition_ctrl ctrl{VORN_PART_RID | VORN_PART_HASH, static_cast<ub1>(kLowBit + bits - 1), kLowBit, 0,
                             p.cursors.data(), p.limits.data()};
    for (auto _ : state) {
        p.reset();
        vorn_kernel_ctx k{};
        if (ctx().vorn_partition_dydi(&ctrl, &src, &rids, nullptr, nullptr, &k) != 0) state.SkipWithError("not placed");
        benchmark::ClobberMemory();
    }
    set_rates(state, kRows, static_cast<double>(kRows * kRecordBytes));
}

VORN_SCALAR ub4 scalar_scatter(const ub8 *hashes, ub4 n, ub8 mask, ub4 low, ub1 **cursors, ub1 *const *limits) {
    for (ub4 i = 0; i < n; ++i) {
        const ub8 h = hashes[i];
        const ub8 p = (h & mask) >> low;
        ub1 *c = cursors[p];
        if (limits[p] - c < 16) return i;
        const ub8 rid = i;
        std::memcpy(c, &rid, 8);
        std::memcpy(c + 8, &h, 8);
        cursors[p] = c + 16;
    }
    return n;
}

void scalar_run(benchmark::State &state, ub4 bits) {
    Data &d = data();
    Parts &p = parts(bits);
    const ub8 mask = (ub8{2} << (kLowBit + bits - 1)) - 1;
    for (auto _ : state) {
        p.reset();
        benchmark::DoNotOptimize(scalar_scatter(d.hashes, kRows, mask, kLowBit, p.cursors.data(), p.limits.data()));
        benchmark::ClobberMemory();
    }
    set_rates(state, kRows, static_cast<double>(kRows * kRecordBytes));
}

void copy_run(benchmark::State &state) {
    Data &d = data();
    if (!d.copy_src) {
        d.copy_src = std::make_unique<HugeBuffer>(kRows * kRecordBytes);
        d.copy_dst = std::make_unique<HugeBuffer>(kRows * kRecordBytes);
    }
    for (auto _ : state) {
        std::memcpy(d.copy_dst->data(), d.copy_src->data(), kRows * kRecordBytes);
        benchmark::ClobberMemory();
    }
    set_rates(state, kRows, static_cast<double>(kRows * kRecordBytes));
}

void register_all() {
    for (ub4 bits : {4u, 8u, 12u}) {
        const std::string g = "partition/rid_hash/" + std::to_string(1u << bits) + "parts";
        register_group(
            g, [bits](benchmark::State &st) { kernel_run(st, bits); },
            [bits](benchmark::State &st) { scalar_run(st, bits); }, [](benchmark::State &st) { copy_run(st); });
    }
}

const int registered = (register_all(), 0);

}  // namespace

VORN_BENCH_MAIN()

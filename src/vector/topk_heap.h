// topk_heap.h - the bounded max-heap of top-K, kept in the result array.
//
// Order of entries: a NaN distance is worse than any number; of two NaNs
// the larger row is worse; of two numbers the larger distance.  Equal
// distances are neither worse nor better.  The root (entry 0) is the worst
// entry kept; parent (i - 1) / 2, children 2i + 1 and 2i + 2.
//
// A row offered to a full heap is refused unless it is better than the
// root, so of equal distances the row seen first stays.  A replacement is a
// pop followed by a push: the pop saves the last entry, moves the root to
// the last slot, walks the hole from the root down always to the worse
// child (the right one on a tie) and through a lone child at the bottom,
// puts the saved entry into the hole and sifts it up; the push then puts
// the new entry at the last slot and sifts it up.  Sorting is the same pop
// repeated on a shrinking heap, which leaves the entries ascending, best
// first and NaNs last.  Since ties keep no order of their own, these exact
// moves decide where equal distances stand, and they are kept as they are.
#pragma once

#include <cmath>

#include "frame/base.h"

namespace vorn::vec {

VORN_INLINE bool worse(const vorn_topk_entry &x, const vorn_topk_entry &y) {
    const bool xn = std::isnan(x.distance), yn = std::isnan(y.distance);
    if (xn | yn) return xn && (!yn || x.row > y.row);
    return x.distance > y.distance;
}

struct TopKHeap {
    vorn_topk_entry *h;
    ub4 k;
    ub4 size;

    VORN_INLINE void sift_up(ub4 i, vorn_topk_entry e) {
        while (i > 0) {
            const ub4 p = (i - 1) / 2;
            if (!worse(e, h[p])) break;
            h[i] = h[p];
            i = p;
        }
        h[i] = e;
    }

    // Moves the root to slot n - 1 of a heap of n entries and restores the
    // heap order over the first n - 1.
    VORN_INLINE void pop_to_end(ub4 n) {
        const vorn_topk_entry saved = h[n - 1];
        h[n - 1] = h[0];
        const ub4 m = n - 1;  // entries left in the heap
        ub4 i = 0;
        while (2 * i + 2 < m) {
            const ub4 l = 2 * i + 1, r = l + 1;
            const ub4 c = worse(h[l], h[r]) ? l : r;
            h[i] = h[c];
            i = c;
        }
        if (2 * i + 1 < m) {
            h[i] = h[2 * i + 1];
            i = 2 * i + 1;
        }
        if (m > 0) sift_up(i, saved);
    }

    // A row's distance: kept if the heap has room or it beats the root.
    VORN_INLINE void offer(ub4 row, double d) {
        const vorn_topk_entry e{row, 0, d};
        if (size < k) {
            sift_up(size++, e);
            return;
        }
        const vorn_topk_entry &root = h[0];
        const bool root_nan = std::isnan(root.distance);
        const bool take = std::isnan(d) ? (root_nan && root.row > row) : (root_nan || root.distance > d);
        if (!take) return;
        if (size == 1) {
            h[0] = e;
            return;
        }
        pop_to_end(size);
        sift_up(size - 1, e);
    }

    // The distance at or above which an offer is surely refused: the
    // root's once the heap is full and its root is a number, NaN (which
    // refuses nothing) before.  While the heap stays full it only falls, so
    // a walk may test a group of distances against one reading of it and
    // offer only the rows below it (and NaNs), in walk order.
    VORN_INLINE double cut() const {
        return size == k && !std::isnan(h[0].distance) ? h[0].distance : __builtin_nan("");
    }

    // Leaves the entries ascending: best first, NaNs last by row.
    void sort() {
        for (ub4 n = size; n > 1; --n) pop_to_end(n);
    }
};

// The sink of the top-K walks: every row offered, plus the cut that lets a
// walk skip the offers that would be refused.
struct TopKSink {
    TopKHeap &heap;
    VORN_INLINE void operator()(ub8, ub4 row, double d) const { heap.offer(row, d); }
    VORN_INLINE double cut() const { return heap.cut(); }
};

}  // namespace vorn::vec

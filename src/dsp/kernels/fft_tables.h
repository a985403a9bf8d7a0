/// What a transform's kernels read: the passes of its column transforms, its twiddle factors and the order of
/// its results.
#pragma once

namespace hxr {

/// The element that lies in a lane behind a load of interleaved complex samples: of each four lanes two come
/// from the first half of the elements and two from the second, which takes the fewest shuffles.
[[gnu::always_inline]] inline constexpr int laneElement(int lanes, int lane) {
    return 2 * (lane / 4) + lane % 2 + (lane % 4 >= 2 ? lanes / 2 : 0);
}

/// One pass of decimation in frequency. A butterfly joins rows that lie `span` rows apart; its j-th one's
/// results 1 to radix - 1 are turned by the factors at twiddles + 2 (radix - 1) j. The last pass has a span
/// of 1 and no factors.
struct FftPass {
    int radix, span;
    const float* twiddles;
};

/// A transform of `length` points of as many columns as a vector has lanes: each row is the vector of the
/// columns' real parts and then that of their imaginary parts. It works in place and leaves its results in
/// the order of reversed digits.
struct ColumnTransform {
    static constexpr int mostPasses = 8;
    int length;
    int passes;
    FftPass pass[mostPasses];
    const int* order;  ///< by result and lane: the first float of the row that holds it
};

/// The transform of N = rows.length x lanes points in one step (columns.length = 0), or N = rows.length x
/// columns.length in two with a transposition in between.
struct FftTables {
    ColumnTransform rows;     ///< over the points that lie N / rows.length apart
    ColumnTransform columns;  ///< over the results of these; its order counts by the blocks of the last pass
    /// Factors between the steps, with the scale, by row: in one step a vector for each; in two steps one for
    /// all columns of a group, by group and row, to be multiplied by a vector of `fineTwiddles`, by row.
    const float* twiddles;
    const float* fineTwiddles;
};

}  // namespace hxr

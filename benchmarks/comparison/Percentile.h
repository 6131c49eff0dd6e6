// The value below which a part of all values are.
//
// Errors: none.
#pragma once

#include <cstddef>
#include <vector>

namespace Comparison {

// Of values in ascending order the one at so many thousandths, 0 to 1000; 0 where there are none. Between two places it
// is the higher, so that of few values the 999th thousandth is the highest.
inline double Percentile(const std::vector<double>& sorted, std::size_t thousandths) {
  return sorted.empty() ? 0 : sorted[((sorted.size() - 1) * thousandths + 999) / 1000];
}

}  // namespace Comparison

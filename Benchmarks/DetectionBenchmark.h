#pragma once

namespace panoveer::bench {

// How often formats are recognised by nothing but the pictures: several hundred synthetic clips of every format, by day
// and night, clean and noisy, against what is known of them. Prints what came out, right or wrong.
void detectionBenchmark(bool json);

} // namespace panoveer::bench

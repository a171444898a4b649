#pragma once

namespace panoveer {

// The processors that the calling thread, and every thread it starts, may run on; at least 1.
int availableProcessors();

// Restricts the calling thread, and every thread that it or a library starts from now on, to the first `count` of the
// processors that it may run on; nothing changes for a count below 1 or beyond what is there. Decoders, renderer and
// encoders each start as many threads as there are processors available, so this bounds them all together.
void limitProcessors(int count);

} // namespace panoveer

#pragma once

namespace panoveer {

// From here on libav's remarks on files go into the program's log and no longer to standard error, where they would
// stand between the program's own lines. Any thread; once is enough.
void sendLibAVMessagesToLog();

} // namespace panoveer

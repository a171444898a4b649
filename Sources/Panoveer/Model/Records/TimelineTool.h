#pragma once

namespace panoveer {

// What a click on the timeline does: `select` picks a clip, `blade` cuts it.
enum class TimelineTool { select, blade };

} // namespace panoveer

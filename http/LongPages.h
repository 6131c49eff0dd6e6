// What is done with the whole text of a page, cut into turns where the page is long.
//
// Thread:    the loop's thread.
// Ownership: texts are shared; what is given by reference outlives the task.
// Errors:    none but those of memory running out.
#pragma once

#include <cstddef>
#include <cstdint>

#include "http/Page.h"
#include "http/TagSearch.h"
#include "platform/files/FileSystem.h"
#include "platform/tasks/Task.h"
#include "platform/tasks/Turns.h"

namespace TesselServer {

// Whether a text of that size takes a turn's time: the tasks below are then of use. What is short is done in the call.
inline bool IsLong(std::size_t size, const Turns* turns) { return turns != nullptr && size > kSearchWindow; }

// The whole file; null when it is longer than `limit` bytes or cannot be read.
Task<Page::SharedText> ContentsInTurns(const OpenFile& file, std::int64_t limit, Turns* turns);

// HoldsTags.
Task<bool> HoldsTagsInTurns(Page::SharedText text, Turns* turns);

// A page of that text with its tags normalised.
Page PageOf(Page::SharedText text);
Task<Page> PageInTurns(Page::SharedText text, Turns* turns);

// What the page has become; see Page::Result.
Task<Page::SharedText> ResultInTurns(const Page& page, Turns* turns);

}  // namespace TesselServer

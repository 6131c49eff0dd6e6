// Replaces the function tags of a page by what the host answers.
//
// Thread:    the host's thread only. Raises CallFunction, in which the host may do anything.
// Errors:    none; what the host does not answer is replaced by nothing.
#pragma once

#include <memory>

#include "http/Page.h"
#include "http/PageProcessor.h"
#include "platform/tasks/Task.h"

namespace TesselServer {

class cls_HTTP;

// <%=FunctionNAME(ARGUMENTS)%>: asks the record's ParentControl for NAME with the text inside the parentheses, once for
// all tags of the page that are equal without regard to case. Without a ParentControl the answer is "". A tag ends at
// the next ">", which "%" must precede; other "<%" tags stay.
Task<void> ReplaceFunctionTags(cls_HTTP& record, Page& page);
std::unique_ptr<PageProcessor> FunctionProcessor(cls_HTTP& record, Page& page);

}  // namespace TesselServer

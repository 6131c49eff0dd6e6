// Replaces the tags of a page that show a server variable or an item of the query.
//
// Thread:    the host's thread only.
// Errors:    none; an unknown variable or item is replaced by nothing.
#pragma once

#include <memory>

#include "http/Page.h"
#include "http/PageProcessor.h"
#include "platform/tasks/Task.h"

namespace TesselServer {

class cls_HTTP;

// Four kinds of tag, one after the other over the whole page; openers in any case, names as they are written:
//   <!--#echovar=NAME-->                  the server variable NAME
//   <%=Request.ServerVariables(NAME)%>    the same
//   <%=Request.QueryString(NAME)%>        what follows NAME and one more character in the query, up to the next "&"
//   <%=NAME%>                             the server variable NAME
// kept: NAME is searched for anywhere in the query, so it may be found inside another name or a value.
// kept: a QueryString tag is replaced only where its opener is written exactly so; otherwise the fourth kind takes it.
// kept: the fourth kind ends for good at the first function tag.
// Each value is asked for once in a page.
Task<void> EchoVariables(cls_HTTP& record, Page& page);
std::unique_ptr<PageProcessor> EchoProcessor(cls_HTTP& record, Page& page);

}  // namespace TesselServer

// Replaces the exec directives of a page by the output of the programs that they name.
//
// Thread:    the host's thread only; see RunCGI.h.
// Errors:    none; a program that cannot be run leaves a text that says so.
#pragma once

#include <memory>

#include "http/Page.h"
#include "http/PageProcessor.h"
#include "platform/tasks/Task.h"

namespace TesselServer {

class cls_HTTP;

// Two directives, one after the other over the whole page, in any case:
//   <!--#execcmd=TARGET-->   TARGET below the folder of the record's document
//   <!--#execcgi=TARGET-->   TARGET below CGIDirectory
// TARGET is a program, or a program, "?" and its arguments; for a ".bat" program "?" and "&" among the arguments
// separate words. A path that leads out of its folder is not run; a link is run as the file it leads to. In the output
// each CR LF becomes "<br>". A program is run once for all directives of a page that are equal without regard to case.
// A directive ends at the next ">", which "--" must precede.
Task<void> RunExecDirectives(cls_HTTP& record, Page& page);
std::unique_ptr<PageProcessor> ExecProcessor(cls_HTTP& record, Page& page);

}  // namespace TesselServer

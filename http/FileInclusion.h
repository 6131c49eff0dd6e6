// Replaces the include directives of a page by the files that they name.
//
// Thread:    the host's thread only.
// Errors:    none; a directive whose file is not there, or is refused, stays as it is.
#pragma once

#include <memory>

#include "http/Page.h"
#include "http/PageProcessor.h"
#include "platform/tasks/Task.h"

namespace TesselServer {

class cls_HTTP;

// Three directives, one after the other over the whole page, in any case:
//   <!--#includefile=NAME-->      NAME below the folder of the record's document; one leading "/" is dropped
//   <!--#includevirtual=NAME-->   NAME below the document root; every "../", then every "./", is taken out of it, and
//   <!--#include=NAME-->          one leading "/"
// No name leads out of the root. What a file becomes in the page is cls_HTTP::FinishInclusion's matter; a file is read
// once for all directives of one kind that name it. A directive ends at the next ">", which "--" must precede.
Task<void> IncludeFiles(cls_HTTP& record, Page& page);
std::unique_ptr<PageProcessor> IncludeProcessor(cls_HTTP& record, Page& page);

}  // namespace TesselServer

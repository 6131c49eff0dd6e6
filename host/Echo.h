// The text of a tag <%=Function Echo(text=...)%>.
//
// Thread:    any.
// Ownership: values.
// Errors:    none.
#pragma once

#include <string>
#include <string_view>

namespace TesselServer {

// `text` with & < > " and ' as HTML writes them, so that it stays text wherever a page shows it.
std::string EscapeHtml(std::string_view text);

// The value of the tag's argument `text`, decoded (%20 is how an author writes the blank that a tag cannot hold) and
// escaped. `query` is the whole query string of the connection: the URL's, followed by the arguments of every tag so
// far, this one's last, all with nothing in between. So what follows the last "text=", in any case, up to the next "&"
// is this tag's (a text that itself holds "text=" loses what is before it); "" when there is none. A tag without
// that argument after one that has it cannot be distinguished from it, and shows the author's text once more. `header`
// is the header block of the request, whose first line shows where the URL's own query ends: what a client wrote there
// is no argument. Where the block is not known ("", when it had not arrived whole), a tag without an argument shows the
// client's own "text=", as text.
std::string EchoText(std::string_view query, std::string_view header);

}  // namespace TesselServer

// Makes the listing of a folder in the second manner: reads the folder, puts its entries in order, and writes the page,
// each in turns of the loop.
//
// Thread:    the loop's thread.
// Ownership: the state, the slot and the page outlive the task, which takes the open folder over from the slot. It
//            shares the root and the secret files as they were when it began, for the host may change the settings
//            meanwhile.
// Errors:    those of memory running out, and the socket errors 10024 and 10055 where the process has run out of
//            descriptors when it begins.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "control/life/ControlState.h"
#include "http/modern/ListingOrder.h"
#include "http/modern/ListingPage.h"
#include "http/modern/Request.h"
#include "platform/tasks/Task.h"

namespace TesselServer {

// The form of the page that the request asks for: JSON where its Accept prefers that, else HTML, named as the site of
// `serverName`.
std::unique_ptr<Modern::ListingPage> ListingPageFor(const Modern::Request& request, const std::string& serverName,
                                                    Modern::ListingOrder order);

// `page` written for the folder that is the slot's target. Not listed is what a request would not be served: names that
// begin with a dot, password files, hidden files, links that lead to none of what is served. Of what changes meanwhile
// it shows this or that, each name once at most. What it takes of memory counts as a page on its way from the first
// entry on (Slot::PageMemory): nothing when all those pages together would become too large, and the client is then
// answered that the server is too busy.
Task<std::optional<std::string>> ModernListingOf(ControlState& state, Slot& slot, Modern::ListingPage& page,
                                                 Modern::ListingOrder order);

}  // namespace TesselServer

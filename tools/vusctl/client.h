// SPDX-License-Identifier: Apache-2.0
//
// Client: what vusctl does, on streams that a test can read.
//
// The commands are the rows of a table (command.h). Those that only look at files work without the
// daemon; the others end at once with kNoService when it is not there.

#pragma once

#include <functional>
#include <ostream>

#include "tools/vusctl/command.h"
#include "tools/vusctl/context.h"

namespace android::vus::ctl {

class Client {
  public:
    // `find` answers the service, or at once why there is none. `out_fd` is the descriptor behind
    // `out`, to which the daemon itself writes its dump. `wait` blocks until the user wants no
    // more, or until the descriptor that it is given is readable.
    Client(std::function<FoundService()> find, std::ostream& out, std::ostream& err, int out_fd,
           std::function<void(int fd)> wait, Terminal terminal = {});

    // Runs one command line, without the program's name. Returns the exit status.
    int Run(const Words& words);

  private:
    int run(const Command& command, const Words& words);
    int unknown(const Words& words);

    Context context_;
};

}  // namespace android::vus::ctl

// The plug-in host: runs LV2 effects for clipwright in a process of their own, so that one that crashes
// or hangs costs a render, not the program. It talks on its standard input, a socket its parent made.

#include "lx/plugins/LXPluginHostChannel.h"

#include <csignal>
#include <sys/prctl.h>
#include <unistd.h>

int main() {
    // A host whose program has gone (killed, crashed) goes too, even with an effect hung mid-block.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    return LXPluginHostChannel::serve(STDIN_FILENO);
}

// The plug-in host: runs LV2 effects for clipwright in a process of their own, so that one that crashes
// or hangs costs a render, not the program. It talks on its standard input, a socket its parent made.

#include "lx/plugins/LXPluginHostChannel.h"

#include <unistd.h>

int main() {
    return LXPluginHostChannel::serve(STDIN_FILENO);
}

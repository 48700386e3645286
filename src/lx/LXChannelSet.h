#pragma once

#include <QList>

// Channels of a frame by index (0 is the first), in the order an operation takes them.
using LXChannelSet = QList<int>;

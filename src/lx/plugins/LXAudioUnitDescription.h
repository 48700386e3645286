#pragma once

#include "lx/LXResult.h"

#include <QList>
#include <QPair>
#include <QString>

#include <cstdint>

// What an installed LV2 effect offers, read from its description without instantiating it: enough to
// list it, to show a generic editor (one control per control input) and to map a file's channels.

struct LXAudioUnitPort {
    enum class Kind { AudioInput, AudioOutput, ControlInput, ControlOutput, AtomInput, AtomOutput, Unused };

    uint32_t index = 0;
    Kind kind = Kind::Unused;
    QString symbol; // stable: the key of the port's value in saved settings
    QString name;
    float minimum = 0.0f, maximum = 1.0f, defaultValue = 0.0f;
    QString unit; // a short symbol ("dB", "ms", "Hz"), empty when the plug-in gives none
    bool toggled = false, integer = false, enumeration = false, logarithmic = false;
    bool reportsLatency = false; // the control output whose value is the plug-in's latency in frames
    QList<QPair<float, QString>> scalePoints; // named values, for a pop-up
};

struct LXAudioUnitDescription {
    QString component; // the plug-in's URI
    QString name;
    int audioInputs = 0, audioOutputs = 0;
    QList<LXAudioUnitPort> ports; // in index order, every port of the plug-in

    QList<LXAudioUnitPort> controlInputs() const;
};

// The installed effects this host can run (at least one audio input and output, every required feature
// one we provide, no port of a kind we cannot connect), sorted by name. The plug-in folders are read once
// a process, on first use (LV2_PATH, or ~/.lv2, /usr/local/lib/lv2 and /usr/lib/lv2).
QList<LXAudioUnitDescription> LXInstalledAudioUnits();
// One of them by URI; fails, saying why, when it is not installed or cannot run here.
LXResult<LXAudioUnitDescription> LXFindAudioUnit(const QString& component);

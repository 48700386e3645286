#include "lx/LXAudioFilename.h"

#include <QFileInfo>

const QStringList& LXAudioFilename::channelSuffixes() {
    static const QStringList suffixes = {"L",  "R",  "C",  "Lfe", "Ls", "Rs",  "Cs", "Lc",
                                         "Rc", "Lw", "Rw", "Lh",  "Rh", "Lsb", "Rsb"};
    return suffixes;
}

bool LXAudioFilename::isSplitMember(const QString& path) {
    const QString name = QFileInfo(path).fileName();
    const qsizetype dot = name.lastIndexOf(u'.');
    return dot > 0 && channelSuffixes().contains(name.mid(dot + 1));
}

QString LXAudioFilename::leadPathOfSplitMember(const QString& path) {
    if (!isSplitMember(path)) return path;
    return path.left(path.lastIndexOf(u'.')) + QStringLiteral(".L");
}

LXAudioFilename::LXAudioFilename(const QString& path) {
    const QFileInfo info(path);
    m_directory = info.path();
    const QString name = info.fileName();
    const qsizetype dot = name.lastIndexOf(u'.');
    if (isSplitMember(path)) {
        m_stem = name.left(dot);
        m_scheme = SplitChannels;
        return;
    }
    if (dot > 0) {
        m_stem = name.left(dot);
        m_extension = name.mid(dot + 1);
    } else {
        m_stem = name;
    }
}

QString LXAudioFilename::path() const {
    return pathForChannel(0);
}

QString LXAudioFilename::pathForChannel(int channel) const {
    QString name = m_stem;
    if (m_number != kNoNumber) name += u'-' + QString::number(m_number);
    if (m_scheme == SplitChannels) {
        // A split set: "take.L", "take.R", ...; beyond the named layouts, "take.15", "take.16".
        const QStringList& suffixes = channelSuffixes();
        name += u'.' + (channel < suffixes.size() ? suffixes.at(channel) : QString::number(channel + 1));
    } else if (!m_extension.isEmpty()) {
        name += u'.' + m_extension;
    }
    return m_directory + u'/' + name;
}

QStringList LXAudioFilename::paths() const {
    QStringList list;
    const int files = m_scheme == SplitChannels ? m_files : 1;
    for (int i = 0; i < files; ++i)
        list.append(pathForChannel(i));
    return list;
}

#include "ui/transport/TWTransportView.h"

#include "model/TWFileEntry.h"
#include "model/TWWorkspace.h"
#include "platform/TWPreferences.h"
#include "shell/playback/TWPlayer.h"

#include <QApplication>
#include <QHBoxLayout>
#include <QSlider>
#include <QStyle>
#include <QToolButton>

#include <cmath>

namespace {

const char* const kOptions[4] = {"Autoplay", "Continue", "Repeat", "Autoscroll"};

QToolButton* button(QWidget* parent, const QString& name, QStyle::StandardPixmap icon) {
    auto* made = new QToolButton(parent);
    made->setAccessibleName(name);
    made->setToolTip(name);
    made->setIcon(parent->style()->standardIcon(icon));
    return made;
}

QSlider* slider(QWidget* parent, const QString& name, int minimum, int maximum) {
    auto* made = new QSlider(Qt::Horizontal, parent);
    made->setAccessibleName(name);
    made->setToolTip(name);
    made->setRange(minimum, maximum);
    return made;
}

} // namespace

TWTransportView::TWTransportView(TWWorkspace& workspace, TWPlayer& player, TWPreferences& preferences,
                                 QWidget* parent)
    : QWidget(parent), m_workspace(workspace), m_player(player) {
    setAccessibleName(QStringLiteral("Transport"));
    auto* layout = new QHBoxLayout(this);
    auto* previous = button(this, QStringLiteral("Previous"), QStyle::SP_MediaSkipBackward);
    m_play = button(this, QStringLiteral("Play"), QStyle::SP_MediaPlay);
    auto* stop = button(this, QStringLiteral("Stop"), QStyle::SP_MediaStop);
    auto* next = button(this, QStringLiteral("Next"), QStyle::SP_MediaSkipForward);
    for (QWidget* widget : {static_cast<QWidget*>(previous), static_cast<QWidget*>(m_play),
                            static_cast<QWidget*>(stop), static_cast<QWidget*>(next)})
        layout->addWidget(widget);
    m_volume = slider(this, QStringLiteral("Volume"), 0, 100);
    const QVariant volume = preferences.value(QStringLiteral("Volume"));
    m_volume->setValue(volume.isValid() ? int(std::lround(volume.toDouble() * 100)) : 100);
    m_varispeed = slider(this, QStringLiteral("Varispeed (cents)"), -1200, 1200);
    m_varispeed->setValue(int(preferences.value(QStringLiteral("Varispeed")).toLongLong()));
    layout->addWidget(m_volume);
    layout->addWidget(m_varispeed);
    for (int i = 0; i < 4; ++i) {
        auto* option = new QToolButton(this);
        option->setText(QString::fromLatin1(kOptions[i]));
        option->setAccessibleName(option->text());
        option->setCheckable(true);
        option->setChecked(preferences.boolValue(QString::fromLatin1(kOptions[i])));
        connect(option, &QToolButton::toggled, this, &TWTransportView::optionsChanged);
        layout->addWidget(option);
        m_options[i] = option;
    }
    layout->addStretch();

    connect(m_play, &QToolButton::clicked, this, [this] { m_player.playCommand(); });
    connect(stop, &QToolButton::clicked, this, [this] { m_player.stop(); });
    connect(previous, &QToolButton::clicked, this, [this] { selectNeighbour(-1); });
    connect(next, &QToolButton::clicked, this, [this] { selectNeighbour(+1); });
    connect(m_volume, &QSlider::valueChanged, this, [this](int value) { m_player.volume(float(value) / 100.0f); });
    connect(m_varispeed, &QSlider::valueChanged, this, [this](int value) {
        const bool snap = QApplication::keyboardModifiers() & Qt::ShiftModifier;
        const int shown = m_player.varispeed(value, snap ? TWPlayer::Modifier::Shift : TWPlayer::Modifier::None);
        if (shown != value) m_varispeed->setValue(shown);
    });
    // The play button shows what a click does.
    connect(&player, &TWPlayer::playbackStarted, this, [this] {
        m_play->setIcon(style()->standardIcon(QStyle::SP_MediaPause));
        m_play->setAccessibleName(QStringLiteral("Stop playing"));
    });
    connect(&player, &TWPlayer::playbackStopped, this, [this] {
        m_play->setIcon(style()->standardIcon(QStyle::SP_MediaPlay));
        m_play->setAccessibleName(QStringLiteral("Play"));
    });
}

void TWTransportView::optionsChanged() {
    m_player.playbackControlChanged(m_options[0]->isChecked(), m_options[1]->isChecked(), m_options[2]->isChecked(),
                                    m_options[3]->isChecked());
}

void TWTransportView::selectNeighbour(int step) {
    const QList<TWFileEntryPtr> files = m_workspace.fileEntries();
    if (files.isEmpty()) return;
    const QList<TWFileEntryPtr>& selected = m_workspace.selectedFileEntries();
    qsizetype at = selected.size() == 1 ? files.indexOf(selected.first()) : -1;
    at = at < 0 ? (step > 0 ? 0 : files.size() - 1) : std::clamp<qsizetype>(at + step, 0, files.size() - 1);
    m_workspace.setSelectedEntries({files[at]});
}

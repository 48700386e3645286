#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QString>

class TWEntry;
class TWRunController;

// A one-line progress bar on stderr, drawn only when stderr is a terminal:
//   Normalizing... [#########           ]  3/10  kick.wav
// It follows the workspace's progress and the running entry's own progress, at most ten times a second.
class TWProgressBar : public QObject {
    Q_OBJECT
public:
    explicit TWProgressBar(TWRunController& runs, QObject* parent = nullptr);
    ~TWProgressBar() override;
    static bool isTerminal();

    void clear(); // erases the line, before anything else is printed

private:
    void draw(bool force = false);

    bool m_enabled;
    QString m_title;
    qint64 m_value = 0;
    qint64 m_maximum = 0;
    TWEntry* m_entry = nullptr;
    QString m_entryName;
    QElapsedTimer m_sinceDraw;
    bool m_drawn = false;
};

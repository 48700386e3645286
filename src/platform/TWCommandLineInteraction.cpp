#include "platform/TWCommandLineInteraction.h"

#include <QMutexLocker>
#include <QRegularExpression>

#include <unistd.h>

namespace {

QStringList buttonsOf(const TWAlert& alert) {
    return alert.buttons.isEmpty() ? QStringList{QStringLiteral("OK")} : alert.buttons;
}

QString styleLabel(TWAlertStyle style) {
    switch (style) {
    case TWAlertStyle::Warning:
        return QStringLiteral("Warning: ");
    case TWAlertStyle::Critical:
        return QStringLiteral("Error: ");
    case TWAlertStyle::Informational:
        break;
    }
    return {};
}

void print(FILE* stream, const QString& text) {
    const QByteArray bytes = text.toLocal8Bit();
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stream);
    std::fflush(stream);
}

// One line without its end; false at the end of the input.
bool readLine(FILE* stream, QString* line) {
    QByteArray bytes;
    int c;
    while ((c = std::fgetc(stream)) != EOF && c != '\n')
        bytes.append(char(c));
    if (c == EOF && bytes.isEmpty()) return false;
    *line = QString::fromLocal8Bit(bytes).trimmed();
    return true;
}

// A number from 1, or the start of a button's title ("r" for "Replace"); -1 when neither fits one button.
int parseChoice(const QString& answer, const QStringList& buttons) {
    bool isNumber = false;
    const int number = answer.toInt(&isNumber);
    if (isNumber) return number >= 1 && number <= buttons.size() ? number - 1 : -1;
    int found = -1;
    for (int i = 0; i < buttons.size(); ++i) {
        if (buttons[i].startsWith(answer, Qt::CaseInsensitive)) {
            if (found >= 0) return -1; // ambiguous
            found = i;
        }
    }
    return found;
}

} // namespace

TWCommandLineInteraction::TWCommandLineInteraction(Policy policy)
    : TWCommandLineInteraction(policy, stdin, stderr, isatty(STDIN_FILENO) != 0) {}

TWCommandLineInteraction::TWCommandLineInteraction(Policy policy, FILE* input, FILE* output, bool interactive)
    : m_policy(policy), m_input(input), m_output(output), m_interactive(interactive) {}

int TWCommandLineInteraction::assumedAnswer(const QStringList& buttons, int defaultButton) const {
    if (buttons.size() < 2) return 0;
    if (m_policy == Policy::Ask) return defaultButton; // nobody to answer: as if Return were pressed
    if (m_policy == Policy::AssumeYes) return 0;
    // The refusing button by its title, the one that ends the most first (the Escape key's button in a
    // window); otherwise the last one, where alerts put their way out.
    static const QRegularExpression refusals[] = {
        QRegularExpression(QStringLiteral("^cancel\\b"), QRegularExpression::CaseInsensitiveOption),
        QRegularExpression(QStringLiteral("^(no|don.t|do not)\\b"),
                           QRegularExpression::CaseInsensitiveOption),
        QRegularExpression(QStringLiteral("^(skip|stop|keep)\\b"), QRegularExpression::CaseInsensitiveOption),
    };
    for (const QRegularExpression& refusal : refusals)
        for (int i = 1; i < buttons.size(); ++i)
            if (refusal.match(buttons[i]).hasMatch()) return i;
    return int(buttons.size()) - 1;
}

int TWCommandLineInteraction::showAlert(const TWAlert& alert) {
    QMutexLocker lock(&m_mutex);
    const QStringList buttons = buttonsOf(alert);
    const int defaultButton =
        alert.defaultButton >= 0 && alert.defaultButton < buttons.size() ? alert.defaultButton : 0;

    QString text = styleLabel(alert.style) + alert.title + u'\n';
    if (!alert.message.isEmpty()) text += alert.message + u'\n';
    if (buttons.size() > 1) {
        QStringList choices;
        for (int i = 0; i < buttons.size(); ++i)
            choices << QStringLiteral("%1) %2").arg(i + 1).arg(buttons[i]);
        text += QStringLiteral("  ") + choices.join(QStringLiteral("   ")) + u'\n';
    }
    print(m_output, text);
    if (buttons.size() < 2) return 0;

    if (m_policy == Policy::Ask && m_interactive) {
        for (;;) {
            print(m_output, QStringLiteral("Choose 1-%1 [%2]: ").arg(buttons.size()).arg(defaultButton + 1));
            QString answer;
            if (!readLine(m_input, &answer)) {
                print(m_output, QStringLiteral("\n"));
                break; // end of input: the default, as if nobody were there
            }
            if (answer.isEmpty()) return defaultButton;
            const int choice = parseChoice(answer, buttons);
            if (choice >= 0) return choice;
        }
    }
    const int answer = assumedAnswer(buttons, defaultButton);
    print(m_output, QStringLiteral("  -> %1\n").arg(buttons[answer]));
    return answer;
}

QStringList TWCommandLineInteraction::runOpenPanel(const TWOpenPanelOptions&) {
    return {};
}

QString TWCommandLineInteraction::runSavePanel(const TWSavePanelOptions&) {
    return {};
}

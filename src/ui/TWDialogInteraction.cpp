#include "ui/TWDialogInteraction.h"

#include <QApplication>
#include <QCheckBox>
#include <QFileDialog>
#include <QGridLayout>
#include <QMessageBox>
#include <QPushButton>
#include <QThread>

namespace {

// Runs `ask` on the main thread and answers what it answered, from whichever thread calls.
template <typename Ask> auto onMainThread(Ask ask) {
    using Answer = decltype(ask());
    if (QThread::currentThread() == qApp->thread()) return ask();
    Answer answer{};
    QMetaObject::invokeMethod(qApp, [&] { answer = ask(); }, Qt::BlockingQueuedConnection);
    return answer;
}

QMessageBox::Icon iconOf(TWAlertStyle style) {
    switch (style) {
    case TWAlertStyle::Warning: return QMessageBox::Warning;
    case TWAlertStyle::Critical: return QMessageBox::Critical;
    case TWAlertStyle::Informational: break;
    }
    return QMessageBox::Information;
}

} // namespace

int TWDialogInteraction::showAlert(const TWAlert& alert) {
    return onMainThread([&] {
        QMessageBox box(iconOf(alert.style), alert.title, alert.message, QMessageBox::NoButton,
                        QApplication::activeWindow());
        const QStringList titles = alert.buttons.isEmpty() ? QStringList{QStringLiteral("OK")} : alert.buttons;
        QList<QAbstractButton*> buttons;
        for (const QString& title : titles) buttons.append(box.addButton(title, QMessageBox::AcceptRole));
        box.setDefaultButton(qobject_cast<QPushButton*>(buttons.value(alert.defaultButton)));
        box.exec();
        const qsizetype chosen = buttons.indexOf(box.clickedButton());
        return chosen >= 0 ? int(chosen) : alert.defaultButton;
    });
}

QStringList TWDialogInteraction::runOpenPanel(const TWOpenPanelOptions& options) {
    return runOpenPanelWithCheckBox(options).paths;
}

TWOpenPanelAnswer TWDialogInteraction::runOpenPanelWithCheckBox(const TWOpenPanelOptions& options) {
    return onMainThread([&] {
        QFileDialog dialog(QApplication::activeWindow(), options.title, options.directory);
        dialog.setOption(QFileDialog::DontUseNativeDialog); // the check box needs Qt's own dialog
        dialog.setFileMode(options.chooseDirectories && !options.chooseFiles ? QFileDialog::Directory
                           : options.allowsMultipleSelection                 ? QFileDialog::ExistingFiles
                                                                             : QFileDialog::ExistingFile);
        if (!options.prompt.isEmpty()) dialog.setLabelText(QFileDialog::Accept, options.prompt);
        if (!options.types.isEmpty()) {
            QStringList patterns;
            for (const QString& type : options.types) patterns.append(QStringLiteral("*.") + type);
            dialog.setNameFilter(patterns.join(u' '));
        }
        QCheckBox* box = nullptr;
        if (!options.checkBoxTitle.isEmpty()) {
            box = new QCheckBox(options.checkBoxTitle, &dialog);
            box->setChecked(options.checkBoxChecked);
            if (auto* grid = qobject_cast<QGridLayout*>(dialog.layout()))
                grid->addWidget(box, grid->rowCount(), 0, 1, -1);
        }
        TWOpenPanelAnswer answer;
        if (dialog.exec() == QDialog::Accepted) answer.paths = dialog.selectedFiles();
        answer.checkBoxChecked = box ? box->isChecked() : options.checkBoxChecked;
        return answer;
    });
}

QString TWDialogInteraction::runSavePanel(const TWSavePanelOptions& options) {
    return onMainThread([&] {
        QFileDialog dialog(QApplication::activeWindow(), options.title, options.directory);
        dialog.setAcceptMode(QFileDialog::AcceptSave);
        dialog.selectFile(options.name);
        if (!options.requiredExtension.isEmpty()) dialog.setDefaultSuffix(options.requiredExtension);
        if (!options.prompt.isEmpty()) dialog.setLabelText(QFileDialog::Accept, options.prompt);
        return dialog.exec() == QDialog::Accepted ? dialog.selectedFiles().value(0) : QString();
    });
}

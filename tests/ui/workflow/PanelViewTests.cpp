// Actions' panels as the window draws them, driven through their widgets as a user drives them.

#include "engine/TWAction.h"
#include "engine/TWActionRegistry.h"
#include "ui/workflow/TWPanelView.h"

#include <QAbstractItemView>
#include <QButtonGroup>
#include <QCheckBox>
#include <QComboBox>
#include <QDir>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLineEdit>
#include <QSlider>
#include <QTest>

#include <gtest/gtest.h>

#include "TestPlugins.h" // after Qt's headers: it needs QByteArray whole

#include <cmath>

namespace {

std::optional<TWInstructionKey> keyNamed(const TWAction& action, const QString& name) {
    for (const TWInstructionKey& key : action.instructionKeys())
        if (key.name == name) return key;
    return std::nullopt;
}

std::string json(const QVariantMap& map) {
    return QJsonDocument(QJsonObject::fromVariantMap(map)).toJson(QJsonDocument::Compact).toStdString();
}

// The value as one types it after the key's option on the command line.
QString commandLineText(const TWInstructionKey& key, const QVariant& value) {
    switch (key.type) {
    case TWValueType::Boolean:
        return value.toBool() ? QStringLiteral("yes") : QStringLiteral("no");
    case TWValueType::FourCharCode:
        return TWInstructionKey::describeCode(uint32_t(value.toLongLong()));
    case TWValueType::Number:
    case TWValueType::Integer:
        return QString::number(value.toDouble(), 'g', 17);
    case TWValueType::List:
        return value.toStringList().join(u',');
    case TWValueType::Dictionary:
        return QString::fromUtf8(QJsonDocument(QJsonObject::fromVariantMap(value.toMap())).toJson());
    default:
        return value.toString();
    }
}

// Text a user would type into the field: a number a quarter into the key's range, or a word.
QString typedFor(const TWControl& control, const TWInstructionKey& key) {
    if (key.type == TWValueType::Number || key.type == TWValueType::Integer) {
        const double number =
            key.details.range
                ? key.details.range->minimum + (key.details.range->maximum - key.details.range->minimum) / 4
                : 2.0;
        return key.type == TWValueType::Integer ? QString::number(std::llround(number))
                                                : QString::number(number, 'f', control.decimals);
    }
    if (key.type == TWValueType::Path) return QDir::tempPath();
    if (key.type == TWValueType::List) return QStringLiteral("a,b");
    return QStringLiteral("take");
}

// Changes the widget as a user would; returns the text typed into a field, if it is one.
std::optional<QString> drive(QWidget* widget, const TWControl& control, const TWInstructionKey& key) {
    if (auto* slider = qobject_cast<QSlider*>(widget)) {
        QTest::keyClick(slider, slider->value() == slider->maximum() ? Qt::Key_Home : Qt::Key_End);
    } else if (auto* edit = qobject_cast<QLineEdit*>(widget)) {
        const QString typed = typedFor(control, key);
        edit->clear();
        QTest::keyClicks(edit, typed);
        QTest::keyClick(edit, Qt::Key_Return);
        return typed;
    } else if (auto* popUp = qobject_cast<QComboBox*>(widget)) {
        QTest::keyClick(popUp, popUp->currentIndex() + 1 < popUp->count() ? Qt::Key_Down : Qt::Key_Up);
    } else if (auto* check = qobject_cast<QCheckBox*>(widget)) {
        check->click();
    } else if (auto* group = widget->findChild<QButtonGroup*>()) {
        for (QAbstractButton* button : group->buttons())
            if (!button->isChecked()) {
                button->click();
                break;
            }
    } else {
        ADD_FAILURE() << "no way to drive " << widget->metaObject()->className();
    }
    return std::nullopt;
}

} // namespace

TEST(PanelView, EveryActionsWidgetsGiveTheInstructionsTheCommandLineTypes) {
    TestPlugins::useTestPlugins();
    const QStringList classes = TWActionRegistry::classNames();
    ASSERT_GE(classes.size(), 50);
    for (const QString& className : classes) {
        SCOPED_TRACE(className.toStdString());
        const std::unique_ptr<TWAction> action = TWActionRegistry::make(className);
        TWPanelModel model(*action);
        TWPanelView view(model);
        view.show();
        for (qsizetype i = 0; i < model.controls().size(); ++i) {
            ASSERT_NE(view.widgetFor(i), nullptr) << i;
            EXPECT_FALSE(view.widgetFor(i)->accessibleName().isEmpty())
                << model.controls()[i].key.toStdString();
        }

        // Each control driven in turn (the list may grow as it goes: an effect chosen brings its own). The
        // command line's text for a key is what was typed into a field that shows the key as it is and
        // kept it; otherwise the value the panel gave the key.
        QMap<QString, QString> typedByKey;
        for (qsizetype i = 0; i < model.controls().size(); ++i) {
            const TWControl control = model.control(i);
            QWidget* widget = view.widgetFor(i);
            if (control.kind == TWControlKind::Label || !widget->isEnabled()) continue;
            const std::optional<TWInstructionKey> key = keyNamed(*action, control.key);
            ASSERT_TRUE(key) << control.key.toStdString();
            const QVariant shownBefore = model.value(i);
            const std::optional<QString> typed = drive(widget, control, *key);
            const QVariant after = action->instructions().value(key->name);
            if (!typed) {
                EXPECT_NE(shownBefore, model.value(i)) << control.label.toStdString() << " changed nothing";
            }
            const bool keptAsTyped =
                typed && qobject_cast<QLineEdit*>(widget)->text() == *typed && model.value(i) == after;
            typedByKey[key->name] = keptAsTyped ? *typed : commandLineText(*key, after);
        }

        QVariantMap typedOptions;
        for (auto it = typedByKey.cbegin(); it != typedByKey.cend(); ++it) {
            const LXResult<QVariant> value = keyNamed(*action, it.key())->valueFromText(it.value());
            ASSERT_TRUE(value.ok()) << it.key().toStdString() << ": "
                                    << value.error().message().toStdString();
            typedOptions.insert(it.key(), *value);
        }
        const std::unique_ptr<TWAction> typed = TWActionRegistry::make(className);
        typed->setInstructions(typedOptions);
        EXPECT_TRUE(action->instructions() == typed->instructions())
            << "panel: " << json(action->instructions()) << "\ncommand line: " << json(typed->instructions());
    }
}

TEST(PanelView, AChosenEffectBringsSlidersForItsParameters) {
    TestPlugins::useTestPlugins();
    const std::unique_ptr<TWAction> action = TWActionRegistry::make("TWActionAudioUnit");
    TWPanelModel model(*action);
    TWPanelView view(model);
    view.show();
    EXPECT_TRUE(view.findChildren<QSlider*>().isEmpty());

    auto* effects = qobject_cast<QComboBox*>(view.widgetFor(0));
    ASSERT_NE(effects, nullptr);
    EXPECT_EQ(effects->accessibleName(), "Audio Unit");
    const int dubDelay = effects->findData(QString::fromLatin1(TestPlugins::kDubDelay));
    ASSERT_GT(dubDelay, 0);
    effects->showPopup(); // the effect picked from the open list with the keys
    QAbstractItemView* list = effects->view();
    list->setCurrentIndex(list->model()->index(dubDelay, 0));
    QTest::keyClick(list, Qt::Key_Return);

    QSlider* feedback = nullptr;
    for (QSlider* slider : view.findChildren<QSlider*>())
        if (slider->accessibleName() == "Feedback") feedback = slider;
    ASSERT_NE(feedback, nullptr);
    EXPECT_GE(view.findChildren<QSlider*>().size(), 5);
    EXPECT_EQ(qobject_cast<QComboBox*>(view.widgetFor(0))->currentText(), "MDA DubDelay");
    const auto parameters = [&] { return action->instructions()["settings"].toMap()["Parameters"].toMap(); };
    EXPECT_NEAR(parameters()["feedback"].toDouble(), 0.7, 1e-6);
    EXPECT_EQ(feedback->value(), 70); // a hundredth a tick

    QTest::keyClick(feedback, Qt::Key_PageUp);
    EXPECT_NEAR(parameters()["feedback"].toDouble(), 0.8, 1e-9);
    QTest::keyClick(feedback, Qt::Key_Left);
    EXPECT_NEAR(parameters()["feedback"].toDouble(), 0.79, 1e-9);
}

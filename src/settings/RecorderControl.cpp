#include "settings/RecorderControl.h"

#include "config/KeyCodeTable.h"
#include "settings/SettingsStyle.h"

#include <QApplication>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QKeySequence>
#include <QLabel>
#include <QPainter>

using namespace Qt::StringLiterals;

RecorderControl::RecorderControl(QWidget* parent)
    : QWidget(parent)
    , m_label(new QLabel(this)) {
    // Tab reaches it and Space starts a recording, as a click does.
    setFocusPolicy(Qt::StrongFocus);
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);

    m_label->setObjectName(QStringLiteral("recorderLabel"));
    m_label->setAlignment(Qt::AlignCenter);
    // A long label is cut inside the field rather than widening it.
    m_label->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    m_label->setAttribute(Qt::WA_TransparentForMouseEvents);
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(8, 0, 8, 0);
    layout->addWidget(m_label);

    updateDisplay();
}

void RecorderControl::setShortcut(const std::optional<ShortcutConfig>& shortcut) {
    m_shortcut = shortcut;
    updateDisplay();
}

QSize RecorderControl::sizeHint() const {
    return {160, 28};
}

QSize RecorderControl::minimumSizeHint() const {
    return sizeHint();
}

QString RecorderControl::keyLabel(int qtKey) {
    // Shift+Tab arrives as Backtab; the key is still Tab.
    if (qtKey == Qt::Key_Backtab)
        qtKey = Qt::Key_Tab;
    const QString name = QKeySequence(qtKey).toString(QKeySequence::NativeText).toUpper();
    return name.isEmpty() ? u"?"_s : name;
}

QString RecorderControl::keyLabel(const QKeyEvent& event) {
    // The character the key types in the current layout ("Л" for the K key under a Russian
    // layout, "!" for Shift+1). With Ctrl held the platform may send a control character
    // instead; then, and for keys that type nothing visible, the key's name.
    const QString text = event.text();
    if (text.size() == 1 && text.at(0).isPrint() && !text.at(0).isSpace())
        return text.toUpper();
    return keyLabel(event.key());
}

void RecorderControl::startRecording() {
    m_isRecording = true;
    setFocus(Qt::OtherFocusReason);
    updateDisplay();
    // Application-wide, so that the key presses reach this control before any shortcut or
    // text field does; removed again as soon as recording stops.
    qApp->installEventFilter(this);
}

void RecorderControl::stopRecording() {
    m_isRecording = false;
    updateDisplay();
    qApp->removeEventFilter(this);
}

bool RecorderControl::eventFilter(QObject*, QEvent* event) {
    switch (event->type()) {
    case QEvent::ShortcutOverride:
        // Accepted: Qt then delivers the key as a plain key press instead of firing a
        // shortcut such as Ctrl+Q, and that press lands below.
        event->accept();
        return true;
    case QEvent::KeyPress:
        handleKeyEvent(static_cast<QKeyEvent*>(event));
        return true;
    default:
        return false;
    }
}

void RecorderControl::handleKeyEvent(const QKeyEvent* event) {
    // Keys without a code in the table cannot be stored or registered: media keys, and the
    // modifier keys themselves, which arrive on their own on the way to a combination. They
    // are swallowed and recording goes on.
    const std::optional<std::uint16_t> code = KeyCodeTable::keyCode(*event);
    if (!code)
        return;
    if (*code == escapeKeyCode) {
        stopRecording();
        return;
    }
    if (*code == deleteKeyCode || *code == forwardDeleteKeyCode) {
        m_shortcut.reset();
        updateDisplay();
        Q_EMIT changed(m_shortcut);
        stopRecording();
        return;
    }
    // Only the four modifier bits count; keypad and group bits are dropped.
    const std::uint64_t flags =
        KeyCodeTable::modifierFlags(event->modifiers()) & ShortcutConfig::ModifierMask;
    if (flags == 0)
        return;
    m_shortcut = ShortcutConfig{*code, flags, keyLabel(*event)};
    updateDisplay();
    Q_EMIT changed(m_shortcut);
    stopRecording();
}

void RecorderControl::keyPressEvent(QKeyEvent* event) {
    // While recording, key presses never get here: the application filter takes them.
    if (event->key() == Qt::Key_Space && event->modifiers() == Qt::NoModifier) {
        startRecording();
        event->accept();
        return;
    }
    QWidget::keyPressEvent(event);
}

void RecorderControl::mousePressEvent(QMouseEvent* event) {
    if (m_isRecording)
        stopRecording();
    else
        startRecording();
    event->accept();
}

void RecorderControl::focusInEvent(QFocusEvent* event) {
    updateDisplay();
    QWidget::focusInEvent(event);
}

void RecorderControl::focusOutEvent(QFocusEvent* event) {
    if (m_isRecording)
        stopRecording();
    else
        updateDisplay();
    QWidget::focusOutEvent(event);
}

void RecorderControl::hideEvent(QHideEvent* event) {
    // A closed window must not keep swallowing the application's keys.
    if (m_isRecording)
        stopRecording();
    QWidget::hideEvent(event);
}

void RecorderControl::changeEvent(QEvent* event) {
    if (event->type() == QEvent::PaletteChange)
        updateDisplay();
    QWidget::changeEvent(event);
}

void RecorderControl::updateDisplay() {
    const QPalette colours = palette();
    QColor textColour;
    if (m_isRecording) {
        const QColor accent = SettingsStyle::accentColor(colours);
        m_borderColor = accent;
        m_backgroundColor = accent;
        m_backgroundColor.setAlphaF(0.08f);
        m_label->setText(u"Type shortcut…"_s);
        textColour = accent;
    } else {
        // The keyboard focus shows as an accent outline.
        m_borderColor =
            hasFocus() ? SettingsStyle::accentColor(colours) : colours.color(QPalette::Mid);
        m_backgroundColor = colours.color(QPalette::Base);
        if (m_shortcut) {
            m_label->setText(KeyCodeTable::displayText(*m_shortcut));
            textColour = colours.color(QPalette::Text);
        } else {
            m_label->setText(u"Click to record"_s);
            textColour = SettingsStyle::secondaryColor(colours);
        }
    }
    QPalette labelColours = m_label->palette();
    labelColours.setColor(QPalette::WindowText, textColour);
    m_label->setPalette(labelColours);
    // A screen reader reads the field's name, then what it shows.
    setAccessibleDescription(m_label->text());
    update();
}

void RecorderControl::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    // Two points wide while it has the keyboard focus, so that the focus is seen.
    const qreal width = hasFocus() && !m_isRecording ? 2 : 1;
    painter.setPen(QPen(m_borderColor, width));
    painter.setBrush(m_backgroundColor);
    const qreal inset = width / 2;
    painter.drawRoundedRect(QRectF(rect()).adjusted(inset, inset, -inset, -inset), 6, 6);
}

#pragma once

#include <QObject>

// Tells when the computer wakes from sleep: logind announces it on the system bus. Without a
// system bus or logind it never says anything.
class ResumeWatcher : public QObject {
    Q_OBJECT
public:
    explicit ResumeWatcher(QObject* parent = nullptr);
    ~ResumeWatcher() override;

    // Whether the signal is listened to (there is a system bus).
    bool isListening() const { return m_listening; }

Q_SIGNALS:
    void resumed();

private Q_SLOTS:
    // logind's PrepareForSleep: true just before the machine sleeps, false once it woke up.
    void prepareForSleep(bool sleeping);

private:
    bool m_listening = false;
};

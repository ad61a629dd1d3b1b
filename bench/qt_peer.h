// An object of Qt's object framework: a signal, and methods that are called by reflection.
#pragma once

#define QT_NO_KEYWORDS
#include <QtCore/QObject>
#include <QtCore/QString>

class QtPeer : public QObject {
    Q_OBJECT
    Q_PROPERTY(int value READ value WRITE set_value NOTIFY value_changed)

  public:
    int value() const { return value_; }
    void set_value(int value) {
        value_ = value;
        Q_EMIT value_changed(value);
    }
    Q_INVOKABLE void values(qlonglong a, double b, const QString &c) {
        sum += a + static_cast<qlonglong>(b) + c.size();
    }
    void send(qlonglong value) { Q_EMIT sent(value); }
    void receive(qlonglong value) { sum += value; }

    qlonglong sum = 0;

  Q_SIGNALS:
    void sent(qlonglong value);
    void value_changed(int value);

  private:
    int value_ = 0;
};

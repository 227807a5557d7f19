#pragma once

#include <string>

/*
 * What becomes of a command that is stopped by Ctrl-C, by `kill` or because its terminal has gone. It ends at
 * once, in the middle of whatever it does: shadow and chip are in order at every register write. A thread
 * that waits for the signal says so in one line and takes temporary directories away; then the signal does
 * its work.
 */
namespace Nerio {

/** From here on. To be called before there are other threads. */
void interruptsAreSaid();
/** What the line says behind "interrupted"; nothing at first. */
void onInterruptSay(std::string text);
/** Another process of this command says it. */
void interruptsAreSilent();
/** As long as there is one, an interrupt does not end the process: whoever has it waits for it. */
class InterruptWait {
public:
    InterruptWait();
    ~InterruptWait();
    InterruptWait(InterruptWait const&) = delete;
    InterruptWait& operator=(InterruptWait const&) = delete;

    /** Waits that long; whether an interrupt came, by now or before. */
    bool came(double seconds) const;
};

/** Where a bar or a screen was drawn, the line begins on a line of its own. */
void onInterruptPrint(std::string text);

}  // namespace Nerio

// The package-side view of the engine's time: a clock a package may supply,
// and the listener that hears of jumps, speed changes and pauses.
#ifndef VELD_CLOCK_H
#define VELD_CLOCK_H

#include "veld_string.h"
#include "veld_types.h"

// A clock a package supplies to the kernel. The kernel gives out its id.
class VELDBaseClock {
public:
    explicit VELDBaseClock(const char* name);
    VELDBaseClock(const VELDBaseClock&) = delete;
    VELDBaseClock& operator=(const VELDBaseClock&) = delete;

    virtual void Register();
    virtual void Unregister();
    virtual bool IsSynchronizable() { return false; }
    virtual bool IsReplayable() { return false; }
    // What a concrete clock supplies to the kernel.
    virtual VELDTimestamp ClockCurrentTime() = 0;
    virtual void ClockSetCurrentTime(VELDTimestamp time) = 0;
    virtual int ClockSpeed() = 0;
    virtual void ClockSetSpeed(int speed) = 0;
    virtual ~VELDBaseClock();

    unsigned char GetClockID() const { return clockID; }
    const char* GetClockName() const { return clockName; }
    // Unregisters, takes the new name, registers again (through the virtual
    // operations, so a subclass's own are called).
    void RenameClock(const char* name);
    int GetAbsoluteTimeSpeed();
    void SetAbsoluteTimeSpeed(int speed);

    unsigned char clockID;
    VELDStackedString<40> clockName;
};

// Hears the engine's time change state. The callbacks run on the engine's
// time thread: they must not block on anything the thread that changed the
// time holds.
class VELDTimeStateListener {
public:
    // Registers with the kernel.
    VELDTimeStateListener();
    // Registers nothing: the subclass chooses the moment.
    explicit VELDTimeStateListener(int);
    VELDTimeStateListener(const VELDTimeStateListener&) = delete;
    VELDTimeStateListener& operator=(const VELDTimeStateListener&) = delete;
    // Unregisters, whichever constructor ran.
    virtual ~VELDTimeStateListener();
    virtual void CallbackTimeJumped(VELDTimestamp newTime) = 0;
    virtual void CallbackTimeSpeedChanged(int newSpeed) = 0;
    virtual void CallbackTimePaused(bool paused) = 0;

    void Register();
    void Unregister();
};

#endif

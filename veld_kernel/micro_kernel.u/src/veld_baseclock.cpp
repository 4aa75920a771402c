#include "veld_clock.h"
#include "veld_private.h"

VELDBaseClock::VELDBaseClock(const char* name) : clockID(0), clockName(name)
{
    VELDPrivate::RegisterClock(this, &clockID);
}

VELDBaseClock::~VELDBaseClock() { VELDPrivate::UnregisterClock(this); }

void VELDBaseClock::Register() { VELDPrivate::RegisterClock(this, &clockID); }
void VELDBaseClock::Unregister() { VELDPrivate::UnregisterClock(this); }

void VELDBaseClock::RenameClock(const char* name)
{
    Unregister();
    clockName = name;
    Register();
}

int VELDBaseClock::GetAbsoluteTimeSpeed() { return VELDPrivate::GetAbsoluteTimeSpeed(); }
void VELDBaseClock::SetAbsoluteTimeSpeed(int speed) { VELDPrivate::SetAbsoluteTimeSpeed(speed, clockID); }

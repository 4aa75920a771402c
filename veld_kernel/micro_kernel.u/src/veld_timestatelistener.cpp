#include "veld_clock.h"
#include "veld_private.h"

VELDTimeStateListener::VELDTimeStateListener() { Register(); }
VELDTimeStateListener::VELDTimeStateListener(int) {}
VELDTimeStateListener::~VELDTimeStateListener() { Unregister(); }
void VELDTimeStateListener::Register() { VELDPrivate::RegisterTimeStateListener(this); }
void VELDTimeStateListener::Unregister() { VELDPrivate::UnregisterTimeStateListener(this); }

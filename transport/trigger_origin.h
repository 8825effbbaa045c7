// Which of the last two Trigger constructions on the calling thread created
// its semaphore set (rather than opening an existing one). The channel
// constructor asks this about its two triggers right after building them.
#ifndef LIBMESSAGING_TRANSPORT_TRIGGER_ORIGIN_H_
#define LIBMESSAGING_TRANSPORT_TRIGGER_ORIGIN_H_

class Trigger;

bool TriggerCreatedItsSet(Trigger const* trigger);

#endif  // LIBMESSAGING_TRANSPORT_TRIGGER_ORIGIN_H_

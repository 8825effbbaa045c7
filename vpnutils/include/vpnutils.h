// libvpnutils: the small utilities that libmessaging and the appliance's
// processes share: the codec of texts and media and statistics records, a
// cross-process lock, an in-process message queue, sleeping and unique numbers.
#ifndef VPNUTILS_VPNUTILS_H_
#define VPNUTILS_VPNUTILS_H_

#include "vpnutils_codec.h"
#include "vpnutils_records.h"
#include "vpnutils_semaphore.h"
#include "vpnutils_cyclic_queue.h"
#include "vpnutils_system.h"

#endif  // VPNUTILS_VPNUTILS_H_

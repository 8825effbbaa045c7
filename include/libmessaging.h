// Everything libmessaging exports: the transport, the body codec, and every
// messenger family with its records.
#ifndef LIBMESSAGING_LIBMESSAGING_H_
#define LIBMESSAGING_LIBMESSAGING_H_

#include "transport.h"
#include "queue_poller.h"
#include "messenger_connection.h"
#include "codec.h"
#include "call_records.h"
#include "call_messenger.h"
#include "line_messengers.h"
#include "sip_messengers.h"
#include "sip_trunk_messenger.h"
#include "analyzer_messenger.h"

#endif  // LIBMESSAGING_LIBMESSAGING_H_

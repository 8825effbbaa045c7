// Everything libmessaging exports: the transport, the body codec, and every
// messenger family with its records.
#ifndef LIBMESSAGING_LIBMESSAGING_H_
#define LIBMESSAGING_LIBMESSAGING_H_

#include "transport.h"
#include "codec.h"
#include "call_records.h"
#include "call_messenger.h"

#endif  // LIBMESSAGING_LIBMESSAGING_H_

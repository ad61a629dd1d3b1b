/* The whole interface. */
#ifndef KIV_KIV_H
#define KIV_KIV_H

#include <kiv/atom.h>
#include <kiv/atomarray.h>
#include <kiv/atombuf.h>
#include <kiv/attr.h>
#include <kiv/binbuf.h>
#include <kiv/class.h>
#include <kiv/clock.h>
#include <kiv/compression.h>
#include <kiv/console.h>
#include <kiv/critical.h>
#include <kiv/defer.h>
#include <kiv/dictionary.h>
#include <kiv/hashtab.h>
#include <kiv/inlets.h>
#include <kiv/jbox.h>
#include <kiv/jpatcher.h>
#include <kiv/jpatchline.h>
#include <kiv/linklist.h>
#include <kiv/load.h>
#include <kiv/newobject.h>
#include <kiv/object.h>
#include <kiv/path.h>
#include <kiv/quickmap.h>
#include <kiv/receivers.h>
#include <kiv/scheduler.h>
#include <kiv/string.h>
#include <kiv/subpatcher.h>
#include <kiv/symbol.h>
#include <kiv/sysmem.h>
#include <kiv/sysparallel.h>
#include <kiv/syssem.h>
#include <kiv/systhread.h>
#include <kiv/task.h>
#include <kiv/types.h>

#endif

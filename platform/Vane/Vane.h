#pragma once

// The entity framework: everything in one include. In the order in which a newcomer reads it:

#include "Vane/Assert.h"       // assertions, always on
#include "Vane/Collections.h"  // maps that may change while they are walked
#include "Vane/Entity.h"       // declaring shared objects, attribute by attribute
#include "Vane/Enum.h"         // enumerations with names
#include "Vane/Exception.h"    // what is thrown
#include "Vane/Hash.h"         // the one hash recipe
#include "Vane/Notification.h" // how changes are delivered
#include "Vane/Ptr.h"          // counted pointers and the base of shared objects
#include "Vane/Reactor.h"      // declaring state machines
#include "Vane/String.h"       // immutable strings
#include "Vane/Trace.h"        // ring trace and text trace
#include "Vane/Type.h"         // run-time type records
#include "Vane/Types.h"        // integer names
#include "Vane/Value.h"        // value types and their text

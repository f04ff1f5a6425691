// tarsim.hpp - an in-process simulated kernel for libtarlink.
//
// The core, tarsim::Kernel (tarsim/kernel.hpp): sessions on socketpairs, socket options, system
// controls, responders, delivery, notifications, bulk mode, faults, waits and the traffic record.
// Then one facet per object family, each reached through the kernel:
//   kernel.devices()   tarsim/devices.hpp   physical devices, counters, the product record
//   kernel.ifls()      tarsim/ifl.hpp       logical interfaces
//   kernel.gencfg()    tarsim/gencfg.hpp    generic configuration blobs
//   kernel.dfw()       tarsim/dfw.hpp       firewall filter programs and heads
//   kernel.dfw_counters()  tarsim/dfw_stats.hpp  firewall counters and the firewall log
//   kernel.route_tables()  tarsim/rtb.hpp  route tables and named table classes
//   kernel.multicast_groups()  tarsim/mgroup.hpp  multicast groups of the route tables
//   kernel.state_log()  tarsim/ifstate.hpp  the interface state log ("ifstate" chain)
//   kernel.cos()       tarsim/cos.hpp       class-of-service objects and the collector PIC
//   kernel.security_associations()  tarsim/sa.hpp  security associations, public-key service
//   kernel.bridging()  tarsim/bridge.hpp  bridge domains, spanning tree, VLANs, MAC tables
// The C face is tarsim.h.
#pragma once

#include "tarsim/kernel.hpp"
#include "tarsim/remote.hpp"
// The facets.
#include "tarsim/bridge.hpp"
#include "tarsim/chassis.hpp"
#include "tarsim/cos.hpp"
#include "tarsim/devices.hpp"
#include "tarsim/dfw.hpp"
#include "tarsim/dfw_stats.hpp"
#include "tarsim/gencfg.hpp"
#include "tarsim/ifa.hpp"
#include "tarsim/iff.hpp"
#include "tarsim/ifl.hpp"
#include "tarsim/ifstate.hpp"
#include "tarsim/mgroup.hpp"
#include "tarsim/nh_stats.hpp"
#include "tarsim/rnh.hpp"
#include "tarsim/routes.hpp"
#include "tarsim/rt_stats.hpp"
#include "tarsim/rtb.hpp"
#include "tarsim/sa.hpp"

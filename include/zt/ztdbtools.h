// ZtDBTools: one object model over the Tessel help-desk application's databases.
// Include this header for the whole public interface; everything lives in namespace zt.
#pragma once

#include "zt/env.h"
#include "zt/error.h"
#include "zt/error_codes.h"
#include "zt/error_handling.h"
#include "zt/event_logger.h"
#include "zt/resources.h"
#include "zt/trap.h"
#include "zt/user_interaction.h"
#include "zt/variant.h"
#include "zt/version.h"

// Layers above the foundation.
#include "zt/config.h"
#include "zt/config/settings.h"
#include "zt/datastore.h"
#include "zt/definitions/dataview.h"
#include "zt/definitions/field_collection.h"
#include "zt/definitions/interfaces.h"
#include "zt/definitions/query.h"
#include "zt/definitions/sql_statement.h"
#include "zt/definitions/table_type.h"
#include "zt/platform.h"
#include "zt/schema/data_type.h"
#include "zt/schema/dt_mgr.h"
#include "zt/sqlserver/discovery.h"
#include "zt/sqlserver/sql_server.h"
#include "zt/text.h"
#include "zt/xml/xml_manip.h"

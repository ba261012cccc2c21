// Database managers: a connection to a database from which cases are read.
//
// A manager belongs to its environment.  The connection text may hold a password: it is kept out of every
// message and wiped when the manager goes.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "Basic/Environ.h"
#include "Basic/Handle.h"
#include "VarVal/Odbc.h"

struct dbmgr_cs {
    talora::HandleHeader header;
    environ_vx* env = nullptr;
    std::unique_ptr<talora::DbConnection> connection;
};

namespace talora {

using DbManager = dbmgr_cs;

DbManager* NewDbManager(environ_vx& env, std::unique_ptr<DbConnection> connection);
void DeleteDbManager(DbManager* manager) noexcept;
void DeleteDbManagers(environ_vx& env) noexcept;  // all of an environment

}  // namespace talora

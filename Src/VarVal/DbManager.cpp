// Handles of database connections.
#include "VarVal/DbManager.h"

#include <algorithm>

namespace talora {

namespace {

HandlePool<dbmgr_cs, DBMGR_TYPE>& Managers()
{
    static auto* pool = new HandlePool<dbmgr_cs, DBMGR_TYPE>;
    return *pool;
}

}  // namespace

DbManager* NewDbManager(environ_vx& env, std::unique_ptr<DbConnection> connection)
{
    const std::lock_guard guard(env.mutex);
    env.dbmgrs.reserve(env.dbmgrs.size() + 1);
    DbManager* manager = Managers().NewWithLock();
    manager->env = &env;
    manager->connection = std::move(connection);
    env.dbmgrs.push_back(manager);
    return manager;
}

void DeleteDbManager(DbManager* manager) noexcept
{
    environ_vx& env = *manager->env;
    const std::lock_guard guard(env.mutex);
    env.dbmgrs.erase(std::remove(env.dbmgrs.begin(), env.dbmgrs.end(), manager), env.dbmgrs.end());
    manager->connection.reset();
    Managers().ReleaseWithLock(manager);
}

void DeleteDbManagers(environ_vx& env) noexcept
{
    while (!env.dbmgrs.empty()) DeleteDbManager(env.dbmgrs.back());
}

}  // namespace talora

"""Shared pieces of the Python suite: data stores on SQLite and, when the test script started
one, on PostgreSQL (DBTEST_PG_*)."""
import os

import pytest
import ztdbtools


def require_engines():
    return os.environ.get("ZT_REQUIRE_ENGINES") == "1"


def sqlite_store(folder):
    """A new SQLite data store in `folder`, described property by property as a host does."""
    ds = ztdbtools.create("ZtDBTools404.CZtDataStore")
    ds.GeneralProviderType = 1
    ds.Location = str(folder)
    ds.DataStoreName = "helpdesk.db"
    ds.CreatePhysicalDataStore()
    return ds


def postgresql_store():
    """The test server's database, or a skip (a failure under ZT_REQUIRE_ENGINES=1)."""
    env = os.environ
    if not all(env.get("DBTEST_PG_" + k) for k in ("HOST", "PORT", "DB")):
        if require_engines():
            pytest.fail("PostgreSQL is required (ZT_REQUIRE_ENGINES=1) but DBTEST_PG_* is not set")
        pytest.skip("PostgreSQL not configured (DBTEST_PG_*)")
    ds = ztdbtools.create("CZtDataStore")
    ds.GeneralProviderType = 32
    ds.Location = f"{env['DBTEST_PG_HOST']},{env['DBTEST_PG_PORT']}"
    ds.DataStoreName = env["DBTEST_PG_DB"]
    ds.UserName = env.get("DBTEST_PG_USER", "")
    ds.Password = env.get("DBTEST_PG_PASSWORD", "")
    return ds


@pytest.fixture
def sqlite_ds(tmp_path):
    ds = sqlite_store(tmp_path)
    yield ds
    ds.CloseConnections()

"""The library from Python: the typical request of a host, errors with their five values,
by-reference arguments, value conversions and the generated type stubs."""
import ast
import datetime
import gc
import os
from decimal import Decimal

import pytest
import ztdbtools
from conftest import postgresql_store


def typical_request(ds):
    """tblDataView with two views in the store, loaded through a CZtDataViewCol."""
    cn = ds.GetConnection(1)
    assert ztdbtools.type_name(cn) == "Connection"
    i, t = cn.ColumnType(4), cn.ColumnType(10, 50)
    try:
        cn.Execute("DROP TABLE [tblDataView]")
    except ztdbtools.ZtError:
        pass
    cn.Execute(f"CREATE TABLE [tblDataView] ([nID] {i} NOT NULL PRIMARY KEY, "
               f"[nDefaultQueryID] {i}, [nDefaultOrder] {i}, [tName] {t}, [tDescription] {t})")
    try:
        cn.Execute("INSERT INTO [tblDataView] VALUES (1, 0, 2, 'Tickets', 'Every ticket')")
        cn.Execute("INSERT INTO [tblDataView] VALUES (2, 1, 8, 'Ticket détails ✓', 'Open')")
        views = ztdbtools.create("ZtDBTools404.CZtDataViewCol")
        views.Load(ds)
        assert views.Count == 2
        second = views.Item(2)
        assert ztdbtools.type_name(second) == "CZtDataView"
        assert (second.Name, second.Order, second.QueryID) == ("Ticket détails ✓", 8, 1)
        assert views.Item(1).Description == "Every ticket"
        assert len(views.Keys()) == 2
    finally:
        cn.Execute("DROP TABLE [tblDataView]")
        ds.CloseConnections()


def test_typical_request_on_sqlite(sqlite_ds):
    typical_request(sqlite_ds)


def test_typical_request_on_postgresql():
    typical_request(postgresql_store())


def test_errors_reach_python_with_their_five_values(sqlite_ds):
    cn = sqlite_ds.GetConnection(1)
    # Deep in a schema operation: the field list of a table that is not there.
    with pytest.raises(ztdbtools.ZtError) as caught:
        ztdbtools.create("CZtDTMgr").GetAllFieldsInfo(cn, "tblMissing")
    e = caught.value
    assert e.number & 0xFFFF == 3265 and e.number < 0  # ADO's "item not found", 0x800A0CC1
    assert e.source and e.description
    assert isinstance(e.help_file, str) and isinstance(e.help_context, int)
    assert e.args == (e.number, e.source, e.description, e.help_file, e.help_context)
    assert e.description in str(e) and str(e.number) in str(e)

    # An engine's error keeps what the engine said.
    with pytest.raises(ztdbtools.ZtError) as caught:
        cn.Execute("SELEC nothing")
    assert caught.value.number != 0 and caught.value.description
    assert caught.value.sql_state or caught.value.native_error

    # The numbers a late-bound caller expects.
    with pytest.raises(ztdbtools.ZtError) as caught:
        sqlite_ds.NoSuchMember
    assert caught.value.number == 438
    assert caught.value.description == "Object doesn't support this property or method"
    assert not hasattr(sqlite_ds, "NoSuchMember")  # also an AttributeError
    assert getattr(sqlite_ds, "NoSuchMember", "fallback") == "fallback"
    with pytest.raises(ztdbtools.ZtError, match="error 438"):
        sqlite_ds.FullPath = "read-only"
    with pytest.raises(ztdbtools.ZtError) as caught:
        sqlite_ds.GetConnection(1, 2)
    assert caught.value.number == 450
    for bad in ("abc", {1, 2}, 2**70):
        with pytest.raises(ztdbtools.ZtError) as caught:
            sqlite_ds.GeneralProviderType = bad
        assert caught.value.number in (13, 6)
    assert sqlite_ds.GeneralProviderType == 1, "a refused value changes nothing"
    with pytest.raises(ztdbtools.ZtError) as caught:
        ztdbtools.create("ZtDBTools404.CZtNoSuchClass")
    assert caught.value.number == 429


def test_by_reference_arguments_come_back_as_a_tuple(sqlite_ds):
    cn = sqlite_ds.GetConnection(1)
    cn.Execute("CREATE TABLE [tblSettings] ([nID] INTEGER NOT NULL, [tValue] TEXT(50))")
    result, rows = cn.Execute("INSERT INTO [tblSettings] VALUES (12, 'mail.local')")
    assert rows == 1
    result, rows = cn.Execute("UPDATE [tblSettings] SET [tValue] = [tValue]", 0)
    assert rows == 1 and ztdbtools.type_name(result) == "Recordset"

    setting = ztdbtools.create("CZtSetting")
    assert setting.GetSettingValue(cn, 12, None) == (None, "mail.local")
    # No setting 13: the value passed in comes back as it was.
    assert setting.GetSettingValue(cn, 13, "kept") == (None, "kept")

    logger = ztdbtools.create("CZtEventLogger")
    _, event_type, level = logger.LogEvent("hello from Python", 4, 0)
    assert (event_type, level) == (4, 1)
    with pytest.raises(ztdbtools.ZtError) as caught:  # required ones stay required
        logger.LogEvent("hello from Python")
    assert caught.value.number == 450


def test_values_round_trip(sqlite_ds):
    setting = ztdbtools.create("CZtSetting")
    values = [
        None, True, False, 0, -2**31, 2**31 - 1, 2**31, -2**63, 1.5, "", "Ünïcødé ✓ 𝄞",
        b"\x00\xff\xfebinary", datetime.datetime(2026, 11, 23, 7, 16, 44),
        datetime.datetime(1899, 12, 29, 6, 0, 0), Decimal("12345678901234567.8901"),
        [1, "two", [3.0, None]],
    ]
    for value in values:
        setting.Value = value
        back = setting.Value
        assert back == value and type(back) is type(value), value
    setting.Value = (1, 2)
    assert setting.Value == [1, 2]
    setting.Value = datetime.date(2024, 2, 29)
    assert setting.Value == datetime.datetime(2024, 2, 29)
    setting.Value = datetime.datetime(2024, 2, 29, 23, 59, 58, 600000)
    assert setting.Value == datetime.datetime(2024, 2, 29, 23, 59, 59)
    setting.Value = Decimal("1E+3")
    assert setting.Value == Decimal(1000)
    with pytest.raises(ztdbtools.ZtError):
        setting.Value = Decimal("NaN")
    with pytest.raises(ztdbtools.ZtError) as caught:
        setting.Value = "\ud800"  # no UTF-8 form
    assert caught.value.number == 13
    setting.Value = sqlite_ds
    assert setting.Value == sqlite_ds and setting.Value.Location == sqlite_ds.Location
    # Arrays nest 64 deep at most: a list that holds itself is a ValueError, not a crash.
    looped = [1]
    looped.append(looped)
    deep = []
    for _ in range(50000):
        deep = [deep]
    for bad in (looped, deep):
        with pytest.raises(ValueError):
            setting.Value = bad

    # Values read from a table take the Python type of their column.
    cn = sqlite_ds.GetConnection(1)
    cn.Execute("CREATE TABLE [tblValues] ([cMoney] CURRENCY, [dWhen] DATETIME, [tText] TEXT(20), "
               "[bData] LONGBINARY, [nNothing] INTEGER)")
    cn.Execute("INSERT INTO [tblValues] VALUES (12.3456, '2026-11-23 07:16:44', 'Grüße', "
               "X'00FF10', NULL)")
    rs, _ = cn.Execute("SELECT * FROM [tblValues]")
    assert rs.Value("cMoney") == Decimal("12.3456")
    assert rs.Value("dWhen") == datetime.datetime(2026, 11, 23, 7, 16, 44)
    assert rs.Value("tText") == "Grüße"
    assert rs.Value("bData") == b"\x00\xff\x10"
    assert rs.Value("nNothing") is None
    rs.Close()


def test_objects_expose_their_class_members():
    prog_ids = ztdbtools.classes()
    assert "ZtDBTools404.CZtDataStore" in prog_ids and "ZtDBTools404.CZtDataViewCol" in prog_ids
    assert all(p.startswith("ZtDBTools404.") for p in prog_ids)

    gc.collect()  # what earlier tests left behind
    before = ztdbtools.live_objects()
    ds = ztdbtools.create("czTdataStore")
    assert ztdbtools.type_name(ds) == "CZtDataStore"
    assert not ztdbtools.can_unload_now() and ztdbtools.live_objects() > before
    ds.location = "HDSRV"  # names ignore case, as the table's do
    assert ds.LOCATION == "HDSRV"
    names = dir(ds)
    assert "Location" in names and "GetConnection" in names
    assert len(names) == len({n.lower() for n in names})
    assert callable(ds.GetConnection) and "GetConnection" in repr(ds.GetConnection)
    del ds, names
    gc.collect()
    assert ztdbtools.live_objects() == before


def test_stubs_name_every_class_and_member():
    import ztdbtools as module
    stub = os.path.join(os.path.dirname(module.__file__), "ztdbtools.pyi")
    tree = ast.parse(open(stub, encoding="utf-8").read())
    classes = {node.name: node for node in tree.body if isinstance(node, ast.ClassDef)}
    for prog_id in ztdbtools.classes():
        info = ztdbtools.class_info(prog_id)
        assert info["name"] in classes, info["name"]
        body = classes[info["name"]].body
        declared = {n.name for n in body if isinstance(n, ast.FunctionDef)}
        declared |= {n.target.id for n in body if isinstance(n, ast.AnnAssign)}
        for member in info["members"]:
            assert member[0] in declared, (info["name"], member[0])
    creatable = [n for n in tree.body if isinstance(n, ast.FunctionDef) and n.name == "create"]
    assert len(creatable) == 1 + sum(ztdbtools.class_info(p)["creatable"]
                                     for p in ztdbtools.classes())

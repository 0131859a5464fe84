// CZtDTMgr::VerifyCopy: a copied table compared with its source, value by value.
//
// Each side is read once by a thread of its own, forward-only, in primary-key order, and turned
// into rows of canonical cells (numbers by value, dates to the microsecond, text and binary as
// bytes); the calling thread merges the two streams by key. So the comparison costs about one
// read of the larger side, and memory stays flat in the row count. A table without a primary key
// is compared as a multiset of row hashes (eight bytes a row).
#include <algorithm>
#include <charconv>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <deque>
#include <exception>
#include <functional>
#include <mutex>
#include <thread>

#include "platform/dialect.h"
#include "platform/sql_text.h"
#include "schema/dt_copy_state.h"
#include "zt/error.h"
#include "zt/platform.h"
#include "zt/schema/dt_mgr.h"

namespace zt {

namespace {

// How the cells of one column are made canonical, from the types of both sides.
enum class CellKind { kText, kNumber, kBoolean, kDate };

bool IsTextType(std::int32_t t) {
  return t == 129 || t == 130 || t == 200 || t == 201 || t == 202 || t == 203 || t == 72;
}
bool IsBinaryType(std::int32_t t) {
  return t == 128 || t == 204 || t == 205;
}
bool IsDateType(std::int32_t t) {
  return t == 7 || t == 133 || t == 134 || t == 135;
}

CellKind KindOf(std::int32_t source, std::int32_t target) {
  if (IsTextType(source) || IsTextType(target) || IsBinaryType(source) || IsBinaryType(target))
    return CellKind::kText;
  if (source == ado::adBoolean || target == ado::adBoolean) return CellKind::kBoolean;
  if (IsDateType(source) && IsDateType(target)) return CellKind::kDate;
  return CellKind::kNumber;
}

// A number's shortest exact text in fixed notation ("3", "24.99", "-0.5"): an integer, a double
// and a decimal that hold the same value give the same text.
void AppendNumberText(std::string& out, const std::string& text) {
  std::string t = text;
  if (t.find('.') != std::string::npos && t.find_first_of("eE") == std::string::npos) {
    while (!t.empty() && t.back() == '0') t.pop_back();
    if (!t.empty() && t.back() == '.') t.pop_back();
  }
  if (t == "-0" || t.empty()) t = "0";
  out += t;
}

void AppendDouble(std::string& out, double d) {
  if (!std::isfinite(d)) {
    out += std::isnan(d) ? "NaN" : d > 0 ? "Infinity" : "-Infinity";
    return;
  }
  char buf[400];
  const auto r = std::to_chars(buf, buf + sizeof buf, d, std::chars_format::fixed);
  AppendNumberText(out, std::string(buf, r.ptr));
}

// The value as the column's text would hold it: how the copy writes a number into a text column.
void AppendAsText(std::string& out, const Variant& v) {
  char buf[400];
  switch (v.Type()) {
    case VarType::Long:
    case VarType::LongLong:
      out.append(buf, std::to_chars(buf, buf + sizeof buf, v.ToInt64()).ptr);
      return;
    case VarType::Double:
      out.append(buf, std::to_chars(buf, buf + sizeof buf, v.ToDouble()).ptr);
      return;
    default:
      if (const std::string* s = v.AsString())
        out += *s;
      else
        out += v.ToText();
  }
}

void AppendCell(std::string& out, CellKind kind, const Variant& v) {
  if (v.IsNull() || v.IsEmpty()) {
    out += '\x01';  // no text can be this one byte with the length prefix below
    return;
  }
  switch (kind) {
    case CellKind::kText:
      out += 'S';
      AppendAsText(out, v);
      return;
    case CellKind::kBoolean:
      if (v.IsString() && !v.IsNumeric()) break;
      out += v.ToBool() ? "B1" : "B0";
      return;
    case CellKind::kDate:
      if (v.Type() != VarType::Date) break;
      out += 'D';
      out += platform::DateTimeText(v.ToDouble());
      return;
    case CellKind::kNumber:
      switch (v.Type()) {
        case VarType::Long:
        case VarType::LongLong:
        case VarType::Boolean:
          out += 'N';
          out += std::to_string(v.Type() == VarType::Boolean ? (v.ToBool() ? -1 : 0) : v.ToInt64());
          return;
        case VarType::Double:
          out += 'N';
          AppendDouble(out, v.ToDouble());
          return;
        case VarType::Currency:
        case VarType::Decimal:
          out += 'N';
          AppendNumberText(out, v.ToDecimal().ToText());
          return;
        case VarType::String:
          if (auto d = Decimal::TryParse(*v.AsString())) {
            out += 'N';
            AppendNumberText(out, d->ToText());
            return;
          }
          break;
        default:
          break;
      }
      break;
  }
  out += 'S';
  AppendAsText(out, v);
}

// One row: its key values (for the merge) and its canonical cells, each length-prefixed so
// that two rows are equal exactly when their texts are.
struct Row {
  std::vector<Variant> key;
  std::string cells;
  std::vector<std::uint32_t> ends;  // where each cell's text ends in `cells`
};

// Rows of one side, produced by a thread of their own and handed over in blocks.
class RowStream {
 public:
  RowStream(std::shared_ptr<Connection> cn, std::string sql, std::vector<CellKind> kinds,
            std::size_t key_columns)
      : cn_(std::move(cn)), sql_(std::move(sql)), kinds_(std::move(kinds)), keys_(key_columns) {
    thread_ = std::thread([this] { Produce(); });
  }
  ~RowStream() {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      stopped_ = true;
    }
    changed_.notify_all();
    thread_.join();
  }
  RowStream(const RowStream&) = delete;
  RowStream& operator=(const RowStream&) = delete;

  // The next row, or nullptr after the last. Rethrows the reading thread's error.
  const Row* Next() {
    if (pos_ < current_.size()) return &current_[pos_++];
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [&] { return !blocks_.empty() || finished_; });
    if (blocks_.empty()) {
      if (error_) std::rethrow_exception(error_);
      return nullptr;
    }
    // The block just read goes back to the reading thread, rows and buffers included: a new
    // block for every 2,048 rows cost a fifth of the comparison in allocation alone.
    if (spare_.size() < kBlocksAhead) spare_.push_back(std::move(current_));
    current_ = std::move(blocks_.front());
    blocks_.pop_front();
    lock.unlock();
    changed_.notify_all();
    pos_ = 0;
    return current_.empty() ? nullptr : &current_[pos_++];
  }
  std::int64_t Rows() const { return rows_; }

 private:
  // A block is handed over at 2,048 rows or 512 KiB of cells, whichever comes first: rows of
  // long notes would otherwise hold tens of megabytes per side in flight.
  static constexpr std::size_t kBlock = 2048;
  static constexpr std::size_t kBlockBytes = 512 * 1024;
  static constexpr std::size_t kBlocksAhead = 4;

  void Produce() {
    try {
      auto rs = std::make_shared<Recordset>();
      rs->Open(sql_, cn_, ado::adOpenForwardOnly, ado::adLockReadOnly);
      FieldsCollection& f = rs->GetFields();
      std::vector<Row> block;
      std::size_t n = 0, bytes = 0;
      for (; !rs->Eof(); rs->MoveNext()) {
        if (n == block.size()) block.emplace_back();
        Row& row = block[n++];
        row.key.clear();
        row.ends.clear();
        // A slot that once held a long row gives its buffer back rather than keep it.
        if (row.cells.capacity() > 64 * 1024) std::string().swap(row.cells);
        row.cells.clear();
        for (std::size_t i = 0; i < kinds_.size(); ++i) {
          Variant v = f.Item(static_cast<std::int32_t>(i)).Value();
          AppendCell(row.cells, kinds_[i], v);
          row.ends.push_back(static_cast<std::uint32_t>(row.cells.size()));
          if (i < keys_) row.key.push_back(std::move(v));
        }
        // Counted by what the slot holds on to, so that reused slots stay within the bound.
        bytes += row.cells.capacity() + sizeof(Row);
        ++rows_;
        if (n == kBlock || bytes >= kBlockBytes) {
          block.resize(n);
          if (!Hand(block)) return;
          n = bytes = 0;
        }
      }
      rs->Close();
      block.resize(n);
      if (!block.empty()) Hand(block);
    } catch (...) {
      std::lock_guard<std::mutex> lock(mutex_);
      error_ = std::current_exception();
    }
    {
      std::lock_guard<std::mutex> lock(mutex_);
      finished_ = true;
    }
    changed_.notify_all();
  }
  // False when the reader stopped listening.
  bool Hand(std::vector<Row>& block) {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [&] { return blocks_.size() < kBlocksAhead || stopped_; });
    if (stopped_) return false;
    blocks_.push_back(std::move(block));
    block = {};
    if (!spare_.empty()) {
      block = std::move(spare_.back());
      spare_.pop_back();
    }
    lock.unlock();
    changed_.notify_all();
    return true;
  }

  std::shared_ptr<Connection> cn_;
  std::string sql_;
  std::vector<CellKind> kinds_;
  std::size_t keys_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<std::vector<Row>> blocks_;
  std::vector<std::vector<Row>> spare_;  // blocks read, for the reading thread to fill again
  bool finished_ = false, stopped_ = false;
  std::exception_ptr error_;
  std::vector<Row> current_;
  std::size_t pos_ = 0;
  std::int64_t rows_ = 0;
  std::thread thread_;
};

struct ColumnPair {
  std::string source, target;
  std::int32_t source_type = 0, target_type = 0;
  std::int64_t source_size = 0, target_size = 0;
};

std::string_view RawCell(const Row& r, std::size_t i) {
  const std::size_t from = i == 0 ? 0 : r.ends[i - 1];
  return std::string_view(r.cells).substr(from, r.ends[i] - from);
}

std::string Cell(const Row& r, std::size_t i) {
  std::string c(RawCell(r, i));
  if (c == "\x01") return "Null";
  return c.size() > 60 ? c.substr(1, 57) + "..." : c.substr(1);
}

std::string KeyText(const std::vector<std::string>& names, const Row& r) {
  std::string out;
  for (std::size_t i = 0; i < r.key.size(); ++i)
    out += (i ? ", " : "") + names[i] + " = " + Cell(r, i);
  return out;
}

// A narrower type on the target loses values even where the sample at hand does not show it.
std::string Narrowing(const ColumnPair& c) {
  const auto rank = [](std::int32_t t) {
    switch (t) {
      case 16:
      case 17:
        return 1;
      case 2:
        return 2;
      case 3:
        return 3;
      case 20:
        return 4;
      default:
        return 0;
    }
  };
  if (c.source_type == ado::adDouble && c.target_type == ado::adSingle)
    return "double narrowed to single precision";
  if (rank(c.source_type) && rank(c.target_type) && rank(c.target_type) < rank(c.source_type))
    return "integer narrowed";
  const bool sized_text = [&] {
    return (c.source_type == 200 || c.source_type == 202 || c.source_type == 129 ||
            c.source_type == 130) &&
           (c.target_type == 200 || c.target_type == 202 || c.target_type == 129 ||
            c.target_type == 130);
  }();
  if (sized_text && c.target_size > 0 && c.target_size < c.source_size)
    return "text length cut from " + std::to_string(c.source_size) + " to " +
           std::to_string(c.target_size);
  if ((c.source_type == 201 || c.source_type == 203) &&
      (c.target_type == 200 || c.target_type == 202))
    return "unbounded text limited to " + std::to_string(c.target_size) + " characters";
  return {};
}

std::uint64_t Hash(const std::string& s) {
  // FNV-1a, 64-bit: stable across runs and platforms.
  std::uint64_t h = 1469598103934665603ull;
  for (unsigned char c : s) h = (h ^ c) * 1099511628211ull;
  return h;
}

}  // namespace

CopyVerification CZtDTMgr::VerifyCopy(const std::shared_ptr<Connection>& source_cn,
                                      const std::shared_ptr<Connection>& target_cn,
                                      const std::string& table, std::int64_t rejected) {
  const auto started = std::chrono::steady_clock::now();
  CopyVerification v;
  const auto differ = [&](std::string what) {
    if (v.first_difference.empty()) v.first_difference = "[" + table + "]: " + std::move(what);
  };

  // The columns of both sides, matched by name without regard to case.
  const auto describe = [&](const std::shared_ptr<Connection>& cn) {
    auto rs = cn->Execute("SELECT * FROM [" + table + "] WHERE 1=0");
    std::vector<ColumnPair> cols;
    for (std::int32_t i = 0; i < rs->GetFields().Count(); ++i) {
      Field& f = rs->GetFields().Item(i);
      ColumnPair c;
      c.source = f.Name();
      c.source_type = f.Type();
      c.source_size = f.DefinedSize();
      cols.push_back(c);
    }
    rs->Close();
    return cols;
  };
  std::vector<ColumnPair> columns = describe(source_cn);
  const std::vector<ColumnPair> target_columns = describe(target_cn);
  for (auto it = columns.begin(); it != columns.end();) {
    const auto t = std::find_if(target_columns.begin(), target_columns.end(), [&](auto& c) {
      return platform::AsciiLower(c.source) == platform::AsciiLower(it->source);
    });
    if (t == target_columns.end()) {
      differ("column [" + it->source + "] is missing from the target");
      it = columns.erase(it);
      continue;
    }
    it->target = t->source;
    it->target_type = t->source_type;
    it->target_size = t->source_size;
    if (const std::string n = Narrowing(*it); !n.empty())
      differ("column [" + it->source + "]: " + n);
    ++it;
  }

  // Key columns first, in key order, then the others.
  std::vector<std::string> key;
  for (const auto& index : GetTableIndexes(source_cn, table))
    if (index.kind == kIndexKindPrimaryKey) key = index.columns;
  std::vector<ColumnPair> ordered;
  for (const auto& k : key) {
    const auto it = std::find_if(columns.begin(), columns.end(), [&](auto& c) {
      return platform::AsciiLower(c.source) == platform::AsciiLower(k);
    });
    if (it == columns.end()) {
      key.clear();
      ordered.clear();
      break;
    }
    ordered.push_back(*it);
  }
  for (const auto& c : columns)
    if (std::find_if(ordered.begin(), ordered.end(),
                     [&](auto& o) { return o.source == c.source; }) == ordered.end())
      ordered.push_back(c);
  v.by_key = !key.empty();

  std::vector<CellKind> kinds;
  std::vector<std::string> names;
  for (const auto& c : ordered) {
    kinds.push_back(KindOf(c.source_type, c.target_type));
    names.push_back(c.source);
  }
  const auto select = [&](const std::shared_ptr<Connection>& cn, bool source) {
    std::string list, order;
    for (std::size_t i = 0; i < ordered.size(); ++i) {
      const std::string& name = source ? ordered[i].source : ordered[i].target;
      list += (i ? ", [" : "[") + name + "]";
      if (i < key.size())
        order += (i ? ", " : " ORDER BY ") +
                 cn->Dialect().OrderByBytes("[" + name + "]", kinds[i] == CellKind::kText);
    }
    return "SELECT " + list + " FROM [" + table + "]" + order;
  };

  copy_->table = table;
  copy_->total = -1;
  ReportProgress(0, false);
  {
    RowStream src(source_cn, select(source_cn, true), kinds, key.size());
    RowStream dst(target_cn, select(target_cn, false), kinds, key.size());
    std::int64_t compared = 0;
    const auto tick = [&] {
      if (++compared % 5000 == 0) ReportProgress(compared, false);
    };
    if (v.by_key) {
      const Row* a = src.Next();
      const Row* b = dst.Next();
      while (a || b) {
        int order = 0;
        if (!a) {
          order = 1;
        } else if (!b) {
          order = -1;
        } else {
          for (std::size_t i = 0; i < key.size() && order == 0; ++i)
            order = Variant::Compare(a->key[i], b->key[i]).value_or(0);
        }
        if (order < 0) {
          ++v.missing;
          if (v.missing > rejected)
            differ("the row " + KeyText(names, *a) + " is missing from the target");
          a = src.Next();
        } else if (order > 0) {
          ++v.extra;
          differ("the target has a row the source lacks: " + KeyText(names, *b));
          b = dst.Next();
        } else {
          if (a->cells != b->cells) {
            ++v.differing;
            for (std::size_t i = 0; i < a->ends.size(); ++i)
              if (RawCell(*a, i) != RawCell(*b, i)) {
                differ("column [" + names[i] + "] of the row " + KeyText(names, *a) +
                       ": the source holds " + Cell(*a, i) + ", the target " + Cell(*b, i));
                break;
              }
          }
          a = src.Next();
          b = dst.Next();
        }
        tick();
      }
    } else {
      // No key: the rows as a multiset of their hashes, read side by side.
      std::vector<std::uint64_t> hs, ht;
      for (const Row* a = src.Next(); a; a = src.Next(), tick()) hs.push_back(Hash(a->cells));
      for (const Row* b = dst.Next(); b; b = dst.Next()) ht.push_back(Hash(b->cells));
      std::sort(hs.begin(), hs.end());
      std::sort(ht.begin(), ht.end());
      std::vector<std::uint64_t> only;
      std::set_difference(hs.begin(), hs.end(), ht.begin(), ht.end(), std::back_inserter(only));
      v.missing = static_cast<std::int64_t>(only.size());
      only.clear();
      std::set_difference(ht.begin(), ht.end(), hs.begin(), hs.end(), std::back_inserter(only));
      v.extra = static_cast<std::int64_t>(only.size());
      if (v.extra) differ(std::to_string(v.extra) + " rows of the target are not in the source");
      if (v.missing > rejected)
        differ(std::to_string(v.missing - rejected) + " rows of the source are not in the target");
    }
    v.source_rows = src.Rows();
    v.target_rows = dst.Rows();
  }
  if (v.source_rows - rejected != v.target_rows)
    differ("the target holds " + std::to_string(v.target_rows) + " rows, the source " +
           std::to_string(v.source_rows) +
           (rejected ? " less " + std::to_string(rejected) + " refused" : std::string()));
  ReportProgress(v.source_rows, true);
  copy_->table.clear();
  v.same = v.first_difference.empty();
  v.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
  return v;
}

}  // namespace zt

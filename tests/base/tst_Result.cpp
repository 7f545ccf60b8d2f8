#include "../Rows.h"

#include <Result.h>

#include <QTest>

#include <memory>
#include <stdexcept>
#include <string>

using namespace Qt::StringLiterals;
using orv::Error;
using orv::ErrorCode;
using orv::Result;

namespace {

// Counts its objects, and throws from the copy or move that the test selects.
struct Tracked
{
    explicit Tracked(int v)
        : value(v)
    {
        ++living;
    }
    Tracked(const Tracked& other)
        : value(other.value)
    {
        maybeThrow();
        ++living;
    }
    Tracked(Tracked&& other) noexcept(false)
        : value(other.value)
    {
        maybeThrow();
        ++living;
    }
    Tracked& operator=(const Tracked& other) = default;
    Tracked& operator=(Tracked&& other) = default;
    ~Tracked() { --living; }

    static void maybeThrow()
    {
        if (throwAfter >= 0 && throwAfter-- == 0)
            throw std::runtime_error("no");
    }

    int value;
    static inline int living = 0;
    static inline int throwAfter = -1; // copies and moves that still succeed
};

Result<Tracked> failed(const char* message)
{
    return Error(ErrorCode::Network, message).addWarning(u"w"_s);
}

using MoveOnly = std::unique_ptr<int>;

static_assert(!std::is_copy_constructible_v<Result<MoveOnly>> &&
              !std::is_copy_assignable_v<Result<MoveOnly>>);
static_assert(std::is_nothrow_move_constructible_v<Result<MoveOnly>>);
static_assert(std::is_nothrow_move_assignable_v<Result<MoveOnly>>);
static_assert(std::is_copy_constructible_v<Result<Tracked>>);
static_assert(!std::is_nothrow_move_constructible_v<Result<Tracked>>);
static_assert(std::is_convertible_v<const char*, Result<std::string>>);
static_assert(!std::is_convertible_v<int, Result<Tracked>>, "as explicit as the value's own constructor");

} // namespace

class tst_Result : public QObject
{
    Q_OBJECT

private:
    static Result<Tracked> make(bool value, int number)
    {
        return value ? Result<Tracked>(Tracked(number)) : failed(number == 1 ? "one" : "two");
    }

    static void verify(const Result<Tracked>& result, bool value, int number)
    {
        QCOMPARE(result.hasValue(), value);
        QCOMPARE(bool(result), !result.hasError());
        if (value)
            QCOMPARE(result.value().value, number);
        else
            QCOMPARE(result.error().errorMessage(), QLatin1String(number == 1 ? "one" : "two"));
        QCOMPARE(result.error().hasError(), !value);
        QCOMPARE(result.warnings(), value ? QStringList() : QStringList{u"w"_s});
    }

private Q_SLOTS:
    void cleanup()
    {
        Tracked::throwAfter = -1;
        QCOMPARE(Tracked::living, 0);
    }

    // Every pair of what a result held before an assignment and what it is assigned.
    void copiesAndMoves_data()
    {
        const auto row = addColumns<bool, bool>({"fromValue", "toValue"});
        row("value to value", true, true);
        row("value to error", true, false);
        row("error to value", false, true);
        row("error to error", false, false);
    }

    void copiesAndMoves()
    {
        QFETCH(bool, fromValue);
        QFETCH(bool, toValue);
        const auto source = make(fromValue, 2);

        const auto copy = source; // NOLINT(performance-unnecessary-copy-initialization)
        verify(copy, fromValue, 2);
        auto target = make(toValue, 1);
        target = source;
        verify(target, fromValue, 2);
        target = *std::addressof(target);
        verify(target, fromValue, 2);

        auto moved = make(toValue, 1);
        moved = std::move(target);
        verify(moved, fromValue, 2);
        const auto constructed = std::move(moved);
        verify(constructed, fromValue, 2);
        verify(source, fromValue, 2);
    }

    void isUnchangedWhenTheValueThrows()
    {
        const auto source = make(true, 2);
        auto target = make(false, 1);
        for (const int succeeding : {0, 1}) { // the copy throws, then the move into place
            Tracked::throwAfter = succeeding;
            QVERIFY_THROWS_EXCEPTION(std::runtime_error, target = source);
            verify(target, false, 1);
        }
        Tracked::throwAfter = 0;
        QVERIFY_THROWS_EXCEPTION(std::runtime_error, Result<Tracked>{source});
    }

    void passesWarningsToItsError()
    {
        auto result = failed("x");
        result.addWarning(u"a"_s);
        result.addWarnings({u"b"_s, u"c"_s});
        QCOMPARE(result.error().warnings().join(u' '), u"w a b c"_s);
        QCOMPARE(result.warnings(), result.error().warnings());
        result.resetWarning(u"d"_s);
        QCOMPARE(result.error().warnings(), QStringList{u"d"_s});
        result.resetWarnings({u"e"_s, u"f"_s});
        QCOMPARE(result.error().warnings().join(u' '), u"e f"_s);
        result.clearWarnings();
        QVERIFY(result.error().warnings().isEmpty() && result.warnings().isEmpty());
    }
};

QTEST_GUILESS_MAIN(tst_Result)

#include "tst_Result.moc"

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

// Counts its living objects and throws from the copy or move that the test selects.
struct Life
{
    Life() { ++count; }
    Life(const Life&)
    {
        if (throwAfter >= 0 && throwAfter-- == 0)
            throw std::runtime_error("no");
        ++count;
    }
    Life& operator=(const Life&) = default;
    ~Life() { --count; }

    static inline int count = 0;
    static inline int throwAfter = -1; // copies and moves that still succeed
};

struct Tracked
{
    int value;
    Life life = {};
};

using MoveOnly = std::unique_ptr<int>;

static_assert(!std::is_copy_constructible_v<Result<MoveOnly>> &&
              !std::is_copy_assignable_v<Result<MoveOnly>>);
static_assert(std::is_nothrow_move_constructible_v<Result<MoveOnly>>);
static_assert(std::is_nothrow_move_assignable_v<Result<MoveOnly>>);
static_assert(std::is_convertible_v<const char*, Result<std::string>>);
static_assert(!std::is_convertible_v<int*, Result<MoveOnly>>, "as explicit as the value's own constructor");

} // namespace

class tst_Result : public QObject
{
    Q_OBJECT

private:
    static Result<Tracked> make(bool value, int number)
    {
        if (value)
            return Tracked{number};
        return Error(ErrorCode::Network, number == 1 ? "one" : "two").addWarning(u"w"_s);
    }

    static void verify(const Result<Tracked>& result, bool value, int number)
    {
        QCOMPARE(result.hasValue(), value);
        QCOMPARE(bool(result), !result.hasError());
        QCOMPARE(value ? result.value().value : number, number);
        QCOMPARE(result.error().errorMessage(), QLatin1String(value ? "" : number == 1 ? "one" : "two"));
        QCOMPARE(result.warnings(), value ? QStringList() : QStringList{u"w"_s});
    }

private Q_SLOTS:
    void cleanup()
    {
        Life::throwAfter = -1;
        QCOMPARE(Life::count, 0);
    }

    // Every pair of what a result held before an assignment and what it is assigned.
    void copiesAndMoves_data() { addRowsForActions({"value", "error"}, {"value", "error"}); }

    void copiesAndMoves()
    {
        QFETCH(QString, place);
        QFETCH(QString, action);
        const bool fromValue = place == u"value";
        const bool toValue = action == u"value";
        const auto source = make(fromValue, 2);

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

    void staysAsItWasWhenTheValueThrows()
    {
        const auto source = make(true, 2);
        auto target = make(false, 1);
        for (const int succeeding : {0, 1}) { // the copy throws, then the move into place
            Life::throwAfter = succeeding;
            QVERIFY_THROWS_EXCEPTION(std::runtime_error, target = source);
            verify(target, false, 1);
        }
    }

    void warnsItsErrorToo()
    {
        auto result = make(false, 1);
        result.addWarnings({u"a"_s, u"b"_s});
        QCOMPARE(result.error().warnings().join(u' '), u"w a b"_s);
        result.resetWarning(u"d"_s);
        QCOMPARE(result.error().warnings(), QStringList{u"d"_s});
        result.clearWarnings();
        QVERIFY(result.error().warnings().isEmpty() && result.warnings().isEmpty());
    }
};

QTEST_GUILESS_MAIN(tst_Result)

#include "tst_Result.moc"

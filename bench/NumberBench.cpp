// String::ParseNum and String::FromNum beside QString's conversions.

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include <QString>

#include <kvcore/core/String.h>

#include "Jobs.h"

namespace
{

std::size_t const count = 1000;

QString ToQt(String const & text)
{
    return QString(reinterpret_cast<QChar const *>(text.data()), static_cast<int>(text.size()));
}

WString FromQt(QString const & text)
{
    return WString(reinterpret_cast<WCHAR const *>(text.utf16()), static_cast<std::size_t>(text.size()));
}

/// Numbers of every length: each bit width is as frequent as any other.
template <class T>
std::vector<T> Integers()
{
    auto random = bench::Random();
    std::vector<T> numbers(count);
    for (T & number : numbers)
    {
        number = static_cast<T>(static_cast<T>(random()) >> (random() % (8 * sizeof(T))));
    }
    return numbers;
}

/// Numbers as settings and measurements hold them: up to seven digits before the point and `decimals` behind it.
std::vector<double> Doubles(int decimals)
{
    auto random = bench::Random();
    double const scale = std::pow(10, decimals);
    std::vector<double> numbers(count);
    for (double & number : numbers)
    {
        double const whole = static_cast<double>(random() % 10'000'000) / std::pow(10, random() % 7);
        number = std::round(whole * scale) / scale * (random() % 2 == 0 ? 1 : -1);
    }
    return numbers;
}

int Parse(QString const & text, int, bool * ok)
{
    return text.toInt(ok, 10);
}
unsigned int Parse(QString const & text, unsigned int, bool * ok)
{
    return text.toUInt(ok, 10);
}
__int64 Parse(QString const & text, __int64, bool * ok)
{
    return text.toLongLong(ok, 10);
}
unsigned __int64 Parse(QString const & text, unsigned __int64, bool * ok)
{
    return text.toULongLong(ok, 10);
}

template <class T>
void AddIntegers(std::string const & variant)
{
    std::vector<T> const numbers = Integers<T>();
    std::vector<String> texts;
    std::vector<QString> qtTexts;
    for (T number : numbers)
    {
        texts.push_back(String::FromNum(number, 10));
        qtTexts.push_back(QString::number(number, 10));
        T ours = 0;
        bool ok = false;
        bench::Require(texts.back() == FromQt(qtTexts.back()), "FromNum/" + variant);
        bench::Require(
            texts.back().ParseNum(ours, 10) && ours == Parse(qtTexts.back(), T(), &ok) && ok, "ParseNum/" + variant);
    }

    bench::Add(
        "ParseNum/" + variant + "/ours", count,
        [texts]
        {
            for (String const & text : texts)
            {
                T number;
                benchmark::DoNotOptimize(text.ParseNum(number, 10));
                benchmark::DoNotOptimize(number);
            }
        });
    bench::Add(
        "ParseNum/" + variant + "/qt", count,
        [qtTexts]
        {
            for (QString const & text : qtTexts)
            {
                bool ok;
                benchmark::DoNotOptimize(Parse(text, T(), &ok));
                benchmark::DoNotOptimize(ok);
            }
        });
    bench::Add(
        "FromNum/" + variant + "/ours", count,
        [numbers]
        {
            for (T number : numbers)
            {
                benchmark::DoNotOptimize(String::FromNum(number, 10));
            }
        });
    bench::Add(
        "FromNum/" + variant + "/qt", count,
        [numbers]
        {
            for (T number : numbers)
            {
                benchmark::DoNotOptimize(QString::number(number, 10));
            }
        });
}

/// Qt prints the zeros behind the last digit, which ours drops; apart from them the texts are equal.
WString WithoutTrailingZeros(WString text)
{
    text.erase(text.find_last_not_of(u'0') + 1);
    if (text.back() == u'.')
    {
        text.pop_back();
    }
    return text;
}

void AddDoubles(std::string const & variant, int decimals)
{
    std::vector<double> const numbers = Doubles(decimals);
    std::vector<String> texts;
    std::vector<QString> qtTexts;
    for (double number : numbers)
    {
        texts.push_back(String::FromNum(number, decimals));
        qtTexts.push_back(QString::number(number, 'f', decimals));
        bench::Require(texts.back() == WithoutTrailingZeros(FromQt(qtTexts.back())), "FromNum/" + variant);
        // Both parse the same texts.
        qtTexts.back() = ToQt(texts.back());
        double ours = 0;
        bool ok = false;
        bench::Require(
            texts.back().ParseNum(ours) && ours == qtTexts.back().toDouble(&ok) && ok, "ParseNum/" + variant);
    }

    bench::Add(
        "ParseNum/" + variant + "/ours", count,
        [texts]
        {
            for (String const & text : texts)
            {
                double number;
                benchmark::DoNotOptimize(text.ParseNum(number));
                benchmark::DoNotOptimize(number);
            }
        });
    bench::Add(
        "ParseNum/" + variant + "/qt", count,
        [qtTexts]
        {
            for (QString const & text : qtTexts)
            {
                bool ok;
                benchmark::DoNotOptimize(text.toDouble(&ok));
                benchmark::DoNotOptimize(ok);
            }
        });
    bench::Add(
        "FromNum/" + variant + "/ours", count,
        [numbers, decimals]
        {
            for (double number : numbers)
            {
                benchmark::DoNotOptimize(String::FromNum(number, decimals));
            }
        });
    bench::Add(
        "FromNum/" + variant + "/qt", count,
        [numbers, decimals]
        {
            for (double number : numbers)
            {
                benchmark::DoNotOptimize(QString::number(number, 'f', decimals));
            }
        });
}

void AddJobs()
{
    AddIntegers<int>("int");
    AddIntegers<unsigned int>("uint");
    AddIntegers<__int64>("int64");
    AddIntegers<unsigned __int64>("uint64");
    AddDoubles("double-3", 3);
    AddDoubles("double-6", 6);
    AddDoubles("double-15", 15);
}

bench::Source const source(AddJobs);

} // namespace

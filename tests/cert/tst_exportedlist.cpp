// SPDX-License-Identifier: BSD-3-Clause

/*
    Uses QList<SslCertificatePtr> as hosts may, in an object file that is compiled without
    optimisation and must not contain any part of the list: all of it comes from the library. What
    the object file contains is checked by ExportedListSymbols.cmake.
*/

#include <Ferrule/SslCertificateChain.h>

#include <QtCore/QSet>
#include <QtCore/QVector>
#include <QtTest/QtTest>

using vela::SslCertificate;
using vela::SslCertificatePtr;

using List = QList<SslCertificatePtr>;

class ExportedListTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void elementsAreAdded();
    void elementsAreTakenAway();
    void elementsAreMoved();
    void elementsAreFound();
    void elementsAreReached();
    void listsAreCopiedAndCompared();
    void listsAreConverted();

private:
    const SslCertificatePtr m_null;
    const SslCertificatePtr m_first{new SslCertificate};
    const SslCertificatePtr m_second{new SslCertificate};
};

void ExportedListTest::elementsAreAdded()
{
    List list;
    list.reserve(8);
    list.append(m_first);
    list.append(List{m_null, m_second});
    list.prepend(m_second);
    list.push_back(m_first);
    list.push_front(m_first);
    list.insert(1, m_null);
    list.insert(list.begin(), m_second);
    list += m_null;
    list += List{m_second};
    list << m_first << List{m_null};
    QVERIFY(list
            == (List{m_second, m_first, m_null, m_second, m_first, m_null, m_second, m_first,
                     m_null, m_second, m_first, m_null}));
    QVERIFY(List{m_first} + List{m_second} == (List{m_first, m_second}));
}

void ExportedListTest::elementsAreTakenAway()
{
    List list{m_first, m_null, m_second, m_first, m_null, m_second, m_first, m_second};
    QVERIFY(list.takeFirst() == m_first);
    QVERIFY(list.takeLast() == m_second);
    QVERIFY(list.takeAt(1) == m_second);
    list.removeFirst();
    list.removeLast();
    QVERIFY(list == (List{m_first, m_null, m_second}));
    list.removeAt(1);
    QVERIFY(list.removeOne(m_second));
    QCOMPARE(list.removeAll(m_first), 1);
    QVERIFY(list.isEmpty());
    list.append(m_first);
    list.erase(list.begin());
    list.append(m_first);
    list.erase(list.begin(), list.end());
    list.append(m_first);
    list.pop_back();
    list.append(m_first);
    list.pop_front();
    list.append(m_first);
    list.clear();
    QCOMPARE(list.size(), 0);
}

void ExportedListTest::elementsAreMoved()
{
    List list{m_first, m_null, m_second};
    list.move(0, 2);
    QVERIFY(list == (List{m_null, m_second, m_first}));
    list.swapItemsAt(0, 1);
    list.replace(2, m_null);
    QVERIFY(list == (List{m_second, m_null, m_null}));
    List other;
    list.swap(other);
    QVERIFY(list.empty());
    QCOMPARE(other.count(), 3);
}

void ExportedListTest::elementsAreFound()
{
    const List list{m_first, m_null, m_second, m_first};
    QCOMPARE(list.indexOf(m_first, 1), 3);
    QCOMPARE(list.lastIndexOf(m_first), 3);
    QCOMPARE(list.count(m_first), 2);
    QVERIFY(list.contains(m_null));
    QVERIFY(list.startsWith(m_first));
    QVERIFY(list.endsWith(m_first));
}

void ExportedListTest::elementsAreReached()
{
    List list{m_first, m_null, m_second};
    list[1] = m_first;
    list.first() = m_null;
    list.last() = m_null;
    list.front() = m_second;
    list.back() = m_second;
    const List copy = list;
    QVERIFY(copy[0] == m_second);
    QVERIFY(copy.at(1) == m_first);
    QVERIFY(copy.value(2) == m_second);
    QVERIFY(!copy.value(3));
    QVERIFY(copy.value(3, m_first) == m_first);
    QVERIFY(copy.constFirst() == copy.constLast());
    QCOMPARE(copy.mid(1).length(), 2);

    int count = 0;
    for (SslCertificatePtr& certificate : list)
        count += certificate ? 1 : 0;
    for (const SslCertificatePtr& certificate : copy)
        count += certificate ? 1 : 0;
    count += int(std::distance(copy.crbegin(), copy.crend()));
    QCOMPARE(count, 9);
}

void ExportedListTest::listsAreCopiedAndCompared()
{
    List list{m_first, m_second};
    const List copy(list);
    QVERIFY(copy.isSharedWith(list));
    list.detach();
    QVERIFY(list.isDetached());
    QVERIFY(list == copy);
    List moved(std::move(list));
    QVERIFY(moved == copy);
    List assigned;
    assigned = copy;
    QVERIFY(!(assigned != copy));
    assigned = List{m_second};
    QVERIFY(assigned != copy);
}

void ExportedListTest::listsAreConverted()
{
    const List list{m_first, m_null};
    QVERIFY(List::fromVector(list.toVector()) == list);
    QT_WARNING_PUSH
    QT_WARNING_DISABLE_DEPRECATED
    QCOMPARE(List::fromSet(list.toSet()).size(), 2);
    QVERIFY(List::fromStdList(list.toStdList()) == list);
    QT_WARNING_POP
}

QTEST_GUILESS_MAIN(ExportedListTest)
#include "tst_exportedlist.moc"

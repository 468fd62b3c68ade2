"""Values, columns and hierarchies as scripts see them: tuples for lookups,
sequences of node ids."""
import unittest

from MQuorvel import (TAggLftData, TBoolAttributeData, TBooleanData, TFloatData, TDataArray, TEdgeCollapsedData, TEdgeData, THierarchyData,
                      TIntegerAttributeData, TIntegerData, TIntegerSetData, TMapStringToIntegerData,
                      TPythonData, TStringAttributeData, TStringData, TStringDataArray, TVariantAttributeData,
                      TIntDataSource, TAbstractIdentityProcessor, TFlowManager)


class ValuesTest(unittest.TestCase):
    def test_lookups_give_found_flags(self):
        for cls, value in ((TIntegerData, 3), (TFloatData, 0.5), (TBooleanData, True)):
            v = cls(value)
            self.assertEqual(v.getValue(), value)
            v.setValue(cls().getValue())
            self.assertEqual(v.m_Value, cls().m_Value)
        m = TMapStringToIntegerData()
        self.assertEqual(m.get("x"), (0, False))
        m.put("x", 0)
        self.assertEqual(m.get("x"), (0, True))
        a = TDataArray()
        a.add(TStringData("k"))
        item, found = a.getItemByKey("k")
        self.assertTrue(found)
        self.assertEqual(item.getValue(), "k")
        self.assertEqual(a.getItemByIndex(1), (None, False))
        with self.assertRaisesRegex(RuntimeError, "^Key not found$"):
            a.getIndexByKey("nothing")

    def test_columns(self):
        c = TIntegerAttributeData("n")
        self.assertEqual(c.getValueById(1), (0, False))
        c.addRow(1, 0)
        c.addRow(2, 7)
        self.assertEqual(c.getValueById(1), (0, True))
        self.assertEqual(c.getStringValueById(2), ("7", True))
        self.assertEqual(c.getTextValueById(2), ("7", True))
        self.assertEqual(c.getFloatValueById(2), (7.0, True))
        self.assertFalse(c.getFloatValueById(9)[1])
        self.assertEqual(c.getUniqueValues(), {0: 1, 7: 2})
        ids = [2, 3, 1]
        c.stable_sort(ids, True)
        self.assertEqual(ids, [3, 1, 2])
        b = TBoolAttributeData("collapsed")
        b.addRow(5, True)
        self.assertEqual(b.getRow(0), (5, True))
        self.assertEqual(b.getStringValueById(5), ("True", True))
        clone = b.clone()
        self.assertEqual(clone.m_DataId, b.m_DataId)
        v = TVariantAttributeData("size")
        for nid, value in ((1, 1), (2, 2.5), (3, None), (4, "n/a")):
            v.addRow(nid, value)
        self.assertEqual(v.getRowCount(), 3, "None adds no row")
        s = v.convertToSpecific()
        self.assertIsInstance(s, TStringAttributeData)
        self.assertEqual(s.getValueById(1), ("1", True))
        self.assertIsNone(TVariantAttributeData("empty").convertToSpecific())

    def test_hierarchy_and_edges(self):
        h = THierarchyData("hierarchy 1")
        for row in ((0, 1, 8), (10, 2, 7), (11, 3, 4), (12, 5, 6)):
            h.addRow(*row)
        self.assertEqual(list(h.getNidsBelowNid(10)), [10, 11, 12])
        self.assertEqual(list(h.getNidsAboveNid(12)), [12, 10])
        self.assertEqual(h.getRowByNid(99), (0, False))
        self.assertEqual(h.getLftByNid(11), (3, True))
        self.assertEqual(h.getNidByLft(5), (12, True))
        self.assertEqual(h.getNidByLft(2), (10, True))
        self.assertEqual(h.getNidByLft(9)[1], False)
        agg = TAggLftData()
        agg.addRow(3, 2)
        agg.rebuildIndex()
        self.assertEqual(agg.getAggLftByLft(3), (2, True))
        self.assertEqual(agg.getAggLftByLft(4)[1], False)
        self.assertEqual(h.getAllByRow(0), (0, 1, 8))
        self.assertIsNone(h.getAllByRow(4))
        sel = TIntegerSetData()
        sel.add(0)
        self.assertEqual(list(h.getNidsBelowNids(sel)), [10, 11, 12])
        e = TEdgeData()
        e.addRow(100, 11, 12)
        self.assertEqual(e.getFromToNidByEid(100), (11, 12, True))
        self.assertEqual(e.getFromToNidByEid(5), (0, 0, False))
        edges = TIntegerSetData()
        edges.add(100)
        nodes = TIntegerSetData()
        e.addForwardNeighbours(11, edges, nodes)
        self.assertEqual(list(nodes.m_Set), [12])
        d = TEdgeCollapsedData()
        d.addEdge(100, 5, 3)
        self.assertEqual(d.getBackwardEids(3, 5), ({100}, True))
        self.assertEqual(d.getForwardEids(5, 3), (set(), False))

    def test_text_forms_and_sets(self):
        s = TIntegerSetData("all nodes")
        for nid in (3, 1, 2):
            s.add(nid)
        self.assertEqual(s.stringify(), "1 2 3 ")
        self.assertEqual(len(s.m_Set), 3)
        self.assertIn(2, s.m_Set)
        arr = TStringDataArray()
        arr.unstringify("node\\attributes b")
        self.assertEqual(arr.getItemByIndex(0)[0].getValue(), "node attributes")
        p = TPythonData({"pass": 2})
        self.assertEqual(p.stringify(), "{'pass': 2}")
        q = TPythonData()
        q.unstringify("[1, (2, 'x')]")
        self.assertEqual(q.getValue(), [1, (2, "x")])
        with self.assertRaises(RuntimeError):
            TIntegerData().unstringify("12x")

    def test_script_values_keep_their_class_on_pins(self):
        import gc
        from MQuorvel import TAbstractData, TAbstractProcessor

        class Tag(TAbstractData):
            def __init__(self, text):
                TAbstractData.__init__(self)
                self.text = text

            def toString(self):
                return "tag " + self.text

        class Holder(TAbstractProcessor):
            def postCreate(self):
                self.addOutputPin("TAbstractData", "out")

        fm = TFlowManager(True)
        fm.postCreate(fm)
        holder = fm.constructProcessor(Holder)
        fm.addProcessor(holder)
        holder.getOnlyOutputPin().setData(Tag("x"))
        gc.collect()
        self.assertEqual(holder.getOnlyOutputPin().getData().toString(), "tag x")
        self.assertEqual(holder.getOnlyOutputPin().getData().text, "x")
        fm.destroy()

    def test_sources(self):
        fm = TFlowManager(True)
        fm.postCreate(fm)
        src = fm.constructProcessor(TIntDataSource)
        self.assertIsNone(src.getData())
        src.ensureDataExists()
        self.assertEqual(src.getData().getValue(), 0)
        port = fm.constructProcessor(TAbstractIdentityProcessor)
        port.getOnlyInputPin().m_Name = "x"
        self.assertEqual(port.getData().getValue(), "x|out")
        fm.addProcessor(port)
        self.assertIs(fm.getIdentityProcessorByInputName("x"), port)
        fm.destroy()

class TooltipTest(unittest.TestCase):
    def test_generator_aggregates_and_writes_text_for_a_script(self):
        from MQuorvel import TAttributeDataArray, TFloatAttributeData, makeFlowManager
        fm = makeFlowManager(True)
        gen = fm.constructProcessor("TTooltipTextGenerator")
        kind, size = TStringAttributeData("kind"), TFloatAttributeData("size")
        for nid, k in ((1, "a"), (2, "a"), (3, "b")):
            kind.addRow(nid, k)
        size.addRow(2, 2.5)
        attrs = TAttributeDataArray()
        attrs.add(kind)
        attrs.add(size)
        sel = TIntegerSetData()
        for nid in (1, 2, 3, 4):
            sel.add(nid)
        gen.getInputPinByName("attributes").setData(attrs)
        gen.getInputPinByName("selection").setData(sel)
        agg = gen.computeAggregation()
        self.assertEqual(agg["kind"], {"hascount": 3, "hasnotcount": 1, "strings": {"a": 2, "b": 1}})
        self.assertEqual(agg["size"], {"hascount": 1, "hasnotcount": 3, "numbers": {"min": 2.5, "max": 2.5}})
        self.assertEqual(gen.makeText("node", sel, attrs),
                         "Brushing 4 nodes\nkind (3): a (2), b (1), \nsize (1): min: 2.50, max: 2.50\n")


if __name__ == "__main__":
    unittest.main()

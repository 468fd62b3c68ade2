"""The extension module from a plain interpreter: build and run a network."""
import os
import sys
import unittest

import MQuorvel
from MQuorvel import TAbstractProcessor, TFlowManager, doflow, me


class Counter(TAbstractProcessor):
    def postCreate(self):
        self.addInputPin("TAbstractData", "in")
        self.addOutputPin("TAbstractData", "out")
        self.runs = 0

    def process_python(self):
        self.runs += 1
        self.getOutputPinByName("out").setData(self.getInputPinByName("in").getData())
        self.resetPins([])


class Source(TAbstractProcessor):
    def postCreate(self):
        self.addOutputPin("TAbstractData", "out")


class ModuleTest(unittest.TestCase):
    def test_network_runs_from_a_prompt(self):
        fm = TFlowManager(True)
        fm.postCreate(fm)
        src = fm.constructProcessor(Source)
        fm.addProcessor(fm, src)
        chain = []
        prev = src
        for y in range(3):
            p = fm.constructProcessor(Counter)
            p.m_Area = MQuorvel.TBox(0, 10 * (y + 1), 80, 10 * (y + 1) + 20)
            fm.addProcessor(p)
            fm.createConnection(prev.getOutputPinByName("out"), p.getInputPinByName("in"))
            chain.append(p)
            prev = p
        value = MQuorvel.TAbstractData()
        src.getOutputPinByName("out").setData(value)
        # One processor runs per pass; a quiet pass ends the run.
        passes = doflow(fm)
        self.assertEqual([p.runs for p in chain], [1, 1, 1])
        self.assertEqual(passes, 4)
        self.assertIs(chain[-1].getOutputPinByName("out").getData(), value)
        del chain, prev, p, src
        import gc
        gc.collect()
        # The network keeps its script objects alive until destroy.
        procs = fm.m_Processors
        self.assertEqual(len(procs), 4)
        self.assertTrue(hasattr(procs[1], "runs"))
        fm.destroy()
        self.assertEqual(len(fm.m_Processors), 0)

    def test_flags_written_by_a_script_reach_the_next_pass(self):
        fm = TFlowManager(True)
        fm.postCreate(fm)
        src = fm.constructProcessor(Source)
        fm.addProcessor(fm, src)
        counter = fm.constructProcessor(Counter)
        fm.addProcessor(fm, counter)
        fm.createConnection(src.getOutputPinByName("out"), counter.getInputPinByName("in"))
        value = MQuorvel.TAbstractData()
        src.getOutputPinByName("out").setData(value)
        doflow(fm)
        self.assertEqual(doflow(fm), 1)
        # Each way a script can give the settled network work.
        counter.getInputPinByName("in").m_DataFullUpdate = True
        doflow(fm)
        self.assertEqual(counter.runs, 2)
        counter.getInputPinByName("in").m_DataHasChanged = True
        doflow(fm)
        self.assertEqual(counter.runs, 3)
        src.getOutputPinByName("out").m_DataReplaced = True
        doflow(fm)
        self.assertEqual(counter.runs, 4)
        other = MQuorvel.TAbstractData()
        other.m_HasChanged = True
        doflow(fm)
        src.getOutputPinByName("out").m_Data = other
        doflow(fm)
        self.assertEqual(counter.runs, 5)
        self.assertIs(counter.getInputPinByName("in").getData(), other)
        fm.destroy()

    def test_mediator_and_logger(self):
        self.assertIsNotNone(me.logger)
        saved = me.logger
        me.logger = MQuorvel.TLogger("prompt.log")
        me.logger.message("hello from a prompt", None)
        self.assertEqual(me.logger.getMostImportantMessage(), "hello from a prompt")
        me.commandqueue.append("x()")
        self.assertEqual(list(me.commandqueue), ["x()"])
        me.commandqueue = []
        with self.assertRaises(TypeError):
            me.logger.error("proc argument is required")
        me.logger = saved

    def test_handle_exception_from_a_script(self):
        try:
            raise RuntimeError("{'msg': 'shown', 'actions': ['popup']}")
        except RuntimeError as e:
            MQuorvel.handleException(e)
        self.assertEqual(MQuorvel.getHeadlessPopups()[-1], ("shown", "Quorvel Workbench"))


if __name__ == "__main__":
    unittest.main()

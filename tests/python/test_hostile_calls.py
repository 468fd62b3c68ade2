"""Every bound operation of MQuorvel called with None and with arguments of
the wrong type: each call either works or raises a Python exception. The
calls run in a child interpreter, so that a crash names the call that made
it."""
import os
import subprocess
import sys
import tempfile
import textwrap
import unittest

CHILD = textwrap.dedent(r'''
    import sys, os, faulthandler, inspect
    faulthandler.enable()
    import MQuorvel
    from MQuorvel import *
    log = open(sys.argv[1], "w", buffering=1)

    WRONG = [7, "x", 1.5, [], {}, object(), [None], (lambda: None)]

    def samples():
        fm = makeFlowManager(True)
        box = TAbstractBox()
        box.postCreate()
        fm.addBox(box)
        proc = fm.constructProcessor("TIntegerSetDataSource")
        box.addProcessor(proc)
        return [fm, box, proc, proc.getOnlyOutputPin(), TIntegerSetData(), TStringData()]

    def arglists(objs):
        out = [(), (None,), (None, None), (None, None, None), (None, None, None, None)]
        out += [(w,) for w in WRONG]
        out += [(w, w) for w in WRONG[:6]]
        for o in objs:
            out += [(o, None), (None, o), (o, None, None), (o, "x", None)]
        return out

    def attempt(label, f, args):
        log.write("%s%r\n" % (label, tuple(type(a).__name__ for a in args)))
        try:
            f(*args)
        except BaseException as e:
            if isinstance(e, (KeyboardInterrupt, SystemExit)):
                raise
            return False
        return True

    SKIP = {"releaseAll"}  # drops the networks for every later call
    names = sorted(n for n in dir(MQuorvel) if not n.startswith("_") and n != "me")
    calls = 0
    for name in names:
        obj = getattr(MQuorvel, name)
        if inspect.isclass(obj):
            objs = samples()
            try:
                # Processors are made the way a network makes them.
                if issubclass(obj, TAbstractProcessor) and name in getProcessorClassNames():
                    inst = objs[0].constructProcessor(name)
                else:
                    inst = obj()
            except BaseException:
                inst = None
            methods = [m for m in dir(obj) if (not m.startswith("_") or m in
                       ("__iter__", "__getitem__", "__len__", "__contains__", "__repr__", "__eq__"))]
            for m in methods:
                if m in SKIP:
                    continue
                if inst is not None:
                    try:
                        bound = getattr(inst, m)
                    except BaseException:
                        continue
                    if callable(bound):
                        for args in arglists(objs):
                            attempt("%s().%s" % (name, m), bound, args)
                            calls += 1
                unbound = getattr(obj, m, None)
                if callable(unbound):
                    attempt("%s.%s(None)" % (name, m), unbound, (None,))
                    calls += 1
        elif callable(obj):
            for args in arglists(samples()):
                attempt(name, obj, args)
                calls += 1
    for m in dir(MQuorvel.me):
        if m.startswith("_") or m in SKIP:
            continue
        f = getattr(MQuorvel.me, m)
        if callable(f):
            for args in arglists(samples()):
                attempt("me." + m, f, args)
                calls += 1
    log.write("DONE %d\n" % calls)
''')


class HostileCallsTest(unittest.TestCase):
    def test_every_operation_survives_none_and_wrong_types(self):
        with tempfile.TemporaryDirectory() as work:
            progress = os.path.join(work, "progress.txt")
            result = subprocess.run([sys.executable, "-c", CHILD, progress], cwd=work,
                                    capture_output=True, text=True, timeout=600)
            with open(progress) as f:
                lines = f.read().splitlines()
            last = lines[-1] if lines else "<nothing>"
            self.assertEqual(result.returncode, 0,
                             "crashed in %s\n%s" % (last, result.stderr[-3000:]))
            self.assertTrue(last.startswith("DONE"), last)
            self.assertGreater(int(last.split()[1]), 10000)

    def test_object_arguments_that_must_not_be_none_raise(self):
        import MQuorvel as Q
        fm = Q.makeFlowManager(True)
        box = Q.TAbstractBox()
        box.postCreate()
        fm.addBox(box)
        proc = fm.constructProcessor("TIntegerSetDataSource")
        box.addProcessor(proc)
        pin = proc.getOnlyOutputPin()
        with tempfile.TemporaryDirectory() as work:
            target = os.path.join(work, "x.qvperspective")
            cases = [
                lambda: Q.canConnect(None, None),
                lambda: box.createConnection(pin, None),
                lambda: fm.load(None, target),
                lambda: fm.store(None, target),
                lambda: fm.store([None], target),
                lambda: box.addBox(box, None),
                lambda: box.addProcessor(box, None),
                lambda: proc.reparent(None),
                lambda: fm.constructProcessor(lambda: None),
                lambda: fm.destroyObject(None),
                lambda: Q.me.waitForFunction(None),
            ]
            for i, case in enumerate(cases):
                with self.assertRaises(Exception, msg="case %d" % i):
                    case()
            self.assertFalse(os.path.exists(target))
        fm.destroy()

    def test_pin_lists_stop_at_the_pin_that_settles_the_answer(self):
        import MQuorvel as Q
        fm = Q.makeFlowManager(False)
        p = fm.constructProcessor("TArrayCreator")
        self.assertFalse(p.requireData(["in1", 5]))
        self.assertFalse(p.haveChanged(["in1"]))
        with self.assertRaises(Exception):
            p.requireData([5, "in1"])
        fm.destroy()

    def test_containers_survive_changes_while_iterating(self):
        import MQuorvel as Q
        s = Q.TIntegerSetData()
        for i in range(100):
            s.add(i)
        seen = []
        for v in s.m_Set:
            seen.append(v)
            if v == 10:
                s.clear()
        self.assertLessEqual(len(seen), 100)
        vec = Q.MStlWraps.VectorUInt32([1, 2, 3, 4])
        out = []
        for v in vec:
            out.append(v)
            if v == 2:
                vec.clear()
        self.assertEqual(out, [1, 2])

    def test_script_classes_outlive_no_interpreter(self):
        # A class registered from a lambda is dropped with the interpreter,
        # not after it.
        code = ("import MQuorvel\n"
                "MQuorvel.registerProcessorClass(lambda: MQuorvel.TAbstractProcessor(), 'Made')\n"
                "fm = MQuorvel.makeFlowManager(False)\n"
                "p = fm.constructProcessor('Made')\n")
        result = subprocess.run([sys.executable, "-c", code], capture_output=True, text=True, timeout=60)
        self.assertEqual(result.returncode, 0, result.stderr[-2000:])


if __name__ == "__main__":
    unittest.main()

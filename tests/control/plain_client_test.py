#!/usr/bin/python3
"""A gRPC client that knows nothing of this tree: what it calls it has learnt from the server's
own reflection. Usage: plain_client_test.py BUILD-DIRECTORY"""
import sys
import unittest

import grpc

from node_process import TestNode
from reflected import SERVICE, Reflected

BUILD = sys.argv.pop(1)


class PlainClient(unittest.TestCase):
    def setUp(self):
        self.node = TestNode(BUILD)
        self.node.__enter__()
        self.addCleanup(self.node.__exit__)
        channel = grpc.insecure_channel(f"unix:{self.node.socket}")
        self.addCleanup(channel.close)
        self.service = Reflected(channel)

    def test_reflection_tells_every_method(self):
        self.assertIn(SERVICE, self.service.services)
        settings = ["Admin", "AuthenAdmin", "AuthorAdmin", "AutoReqAdmin"]
        expected = {"AdminStateSet", "AdminStateGet", "IntfAuthenOperStateGet",
                    "IntfAuthorOperStateGet", "IntfStatisticsGet", "IntfStatesGet", "RuleSet",
                    "RuleBundleSet", "RuleGet", "ConvertAllDynamicProfilesToStatic",
                    "ClearIsaConfiguration", "NodeInfo", "ListInterfaces", "ListStoredLogins",
                    "ListServers", "ListProfiles", "Events"}
        expected |= {f"Intf{each}State{way}" for each in settings for way in ("Set", "Get")}
        self.assertEqual(expected, set(self.service.methods()))

    def test_states_rules_and_reads(self):
        call = self.service.call
        call("AdminStateSet", enabled=True)
        self.assertTrue(call("AdminStateGet").enabled)
        call("IntfAdminStateSet", interface=1, enabled=True)
        rule = self.service.message("Rule", vlan=100)
        call("RuleSet", interface=1, add=rule)
        self.assertEqual([100], [each.vlan for each in call("RuleGet", interface=1).rules])
        self.assertEqual(201, call("IntfStatisticsGet", interface=2).frames_seen)
        interfaces = call("ListInterfaces").interfaces
        self.assertEqual(["1/1", "1/2"], [each.name for each in interfaces])
        self.assertEqual([True, False], [each.admin for each in interfaces])
        self.assertEqual("node2 atm 5/1", call("ListStoredLogins").logins[0].circuit_id)
        self.assertEqual(["rpcTalAdminStateSet(1)", "rpcTalIntfAdminStateSet(1, 1)",
                          "rpcTalRuleSet(1, type 8, add)"], self.node.calls())

    def test_refusals_have_status_number_and_sentence(self):
        with self.assertRaises(grpc.RpcError) as unknown:
            self.service.call("IntfAdminStateGet", interface=77)
        self.assertEqual(grpc.StatusCode.NOT_FOUND, unknown.exception.code())
        self.assertEqual("3", dict(unknown.exception.trailing_metadata())["rpc-tal-res"])
        self.assertIn("77", unknown.exception.details())
        with self.assertRaises(grpc.RpcError) as invalid:
            self.service.call("RuleSet", interface=1, add=self.service.message("Rule", vlan=5000))
        self.assertEqual(grpc.StatusCode.INVALID_ARGUMENT, invalid.exception.code())
        self.node.tell("refuse rpcTalAdminStateSet 4")
        with self.assertRaises(grpc.RpcError) as refused:
            self.service.call("AdminStateSet", enabled=True)
        self.assertEqual(grpc.StatusCode.FAILED_PRECONDITION, refused.exception.code())
        self.assertEqual("4", dict(refused.exception.trailing_metadata())["rpc-tal-res"])

    def test_events_arrive_live(self):
        events = self.service.stream("Events", interface=2)
        events.initial_metadata()
        self.node.tell("event trap 1 other interface")
        self.node.tell("event gate 2 open")
        event = next(events)
        self.assertEqual(("1/2", "open"), (event.interface_name, event.text))
        events.cancel()


if __name__ == "__main__":
    unittest.main()

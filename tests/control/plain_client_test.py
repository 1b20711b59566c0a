#!/usr/bin/python3
"""A gRPC client that knows nothing of this tree: what it calls it has learnt from the server's
own reflection. Usage: plain_client_test.py BUILD-DIRECTORY"""
import sys
import unittest

import grpc
from google.protobuf import descriptor_pb2, descriptor_pool, message_factory

from node_process import TestNode

BUILD = sys.argv.pop(1)
SERVICE = "tal.v1.Management"
STRING = descriptor_pb2.FieldDescriptorProto.TYPE_STRING
BYTES = descriptor_pb2.FieldDescriptorProto.TYPE_BYTES
MESSAGE = descriptor_pb2.FieldDescriptorProto.TYPE_MESSAGE
ONE = descriptor_pb2.FieldDescriptorProto.LABEL_OPTIONAL
MANY = descriptor_pb2.FieldDescriptorProto.LABEL_REPEATED


def reflection_messages():
    """The part of the reflection protocol that is needed to ask for files."""
    pool = descriptor_pool.DescriptorPool()
    proto = descriptor_pb2.FileDescriptorProto(name="r.proto", package="r", syntax="proto3")

    def message(name, *fields):
        added = proto.message_type.add(name=name)
        for number, field, kind, label, of in fields:
            added.field.add(name=field, number=number, type=kind, label=label, type_name=of)

    message("Request", (4, "file_containing_symbol", STRING, ONE, None),
            (7, "list_services", STRING, ONE, None), (3, "file_by_filename", STRING, ONE, None))
    message("Service", (1, "name", STRING, ONE, None))
    message("Services", (1, "service", MESSAGE, MANY, ".r.Service"))
    message("Files", (1, "file_descriptor_proto", BYTES, MANY, None))
    message("Response", (4, "files", MESSAGE, ONE, ".r.Files"),
            (6, "services", MESSAGE, ONE, ".r.Services"))
    pool.Add(proto)
    factory = message_factory.MessageFactory(pool)
    return [factory.GetPrototype(pool.FindMessageTypeByName(f"r.{name}"))
            for name in ("Request", "Response")]


class Reflected:
    """The service as the server describes it."""

    def __init__(self, channel):
        self._channel = channel
        request, response = reflection_messages()
        ask = channel.stream_stream(
            "/grpc.reflection.v1alpha.ServerReflection/ServerReflectionInfo",
            request_serializer=request.SerializeToString,
            response_deserializer=response.FromString)
        self.services = [each.name for answer in ask(iter([request(list_services="*")]), timeout=20)
                         for each in answer.services.service]
        self.pool = descriptor_pool.DescriptorPool()
        self._seen = set()
        for answer in ask(iter([request(file_containing_symbol=SERVICE)]), timeout=20):
            self._add(ask, request, list(answer.files.file_descriptor_proto))
        self._factory = message_factory.MessageFactory(self.pool)
        self._service = self.pool.FindServiceByName(SERVICE)

    def _add(self, ask, request, files):
        parsed = [descriptor_pb2.FileDescriptorProto.FromString(each) for each in files]
        for each in parsed:
            if each.name in self._seen:
                continue
            self._seen.add(each.name)
            for needed in each.dependency:
                if needed not in self._seen:
                    for answer in ask(iter([request(file_by_filename=needed)]), timeout=20):
                        self._add(ask, request, list(answer.files.file_descriptor_proto))
            self.pool.Add(each)

    def methods(self):
        return [each.name for each in self._service.methods]

    def message(self, name, **fields):
        kind = self.pool.FindMessageTypeByName(f"tal.v1.{name}")
        return self._factory.GetPrototype(kind)(**fields)

    def _types(self, method):
        found = self._service.FindMethodByName(method)
        return [self._factory.GetPrototype(each) for each in (found.input_type, found.output_type)]

    def call(self, method, **fields):
        request, response = self._types(method)
        stub = self._channel.unary_unary(f"/{SERVICE}/{method}",
                                         request_serializer=request.SerializeToString,
                                         response_deserializer=response.FromString)
        return stub(request(**fields), timeout=20)

    def stream(self, method, **fields):
        request, response = self._types(method)
        stub = self._channel.unary_stream(f"/{SERVICE}/{method}",
                                          request_serializer=request.SerializeToString,
                                          response_deserializer=response.FromString)
        return stub(request(**fields), timeout=20)


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
                    "ListServers", "Events"}
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

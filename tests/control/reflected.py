"""The management service as the server's own reflection describes it, for clients that know
nothing of this tree."""
from google.protobuf import descriptor_pb2, descriptor_pool, message_factory

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

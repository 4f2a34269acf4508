/* The driver double: a real kernel driver that creates the device "\\.\TAMLOG" and answers the control code
 * by which the log server fetches messages. FOR DEVELOPMENT, DEMONSTRATION AND TESTS ONLY: it serves no
 * hardware, opens its device to everyone, and returns the messages that a program has put in
 * (driver_double.h, tamlogdrv). A machine with the imaging software has the maker's own driver instead; never
 * install both.
 *
 * Locking: everything in `state` that changes after DriverEntry is touched under `state.lock` only. Memory is
 * allocated and freed outside it. */

#include <ddk/wdm.h>

#include "driver/tamlog_driver_control.h"

#define POOL_TAG 0x676C6D54u /* "Tmlg" */

typedef struct QueuedMessage {
  struct QueuedMessage* next;
  UCHAR body[TAMLOG_MESSAGE_SIZE];
} QueuedMessage;

static struct {
  KSPIN_LOCK lock;
  QueuedMessage* oldest;
  QueuedMessage* newest;
  NTSTATUS failure; /* STATUS_SUCCESS, or the status of every get */
  TamLogDriverCounters counters;
  PDEVICE_OBJECT device;
  UNICODE_STRING linkName;
} state;

static NTSTATUS Complete(PIRP irp, NTSTATUS status, ULONG_PTR bytes) {
  irp->IoStatus.Status = status;
  irp->IoStatus.Information = bytes;
  IoCompleteRequest(irp, IO_NO_INCREMENT);
  return status;
}

static void FreeChain(QueuedMessage* first) {
  while (first != NULL) {
    QueuedMessage* next = first->next;
    ExFreePoolWithTag(first, POOL_TAG);
    first = next;
  }
}

/* Copies `count` messages into a new chain. Returns null, with nothing allocated, when memory ran out. */
static QueuedMessage* MakeChain(const UCHAR* bodies, ULONG count, QueuedMessage** last) {
  QueuedMessage* first = NULL;
  *last = NULL;
  for (ULONG i = 0; i < count; ++i) {
    QueuedMessage* message = ExAllocatePoolWithTag(NonPagedPool, sizeof(QueuedMessage), POOL_TAG);
    if (message == NULL) {
      FreeChain(first);
      return NULL;
    }
    message->next = NULL;
    RtlCopyMemory(message->body, bodies + (SIZE_T)i * TAMLOG_MESSAGE_SIZE, TAMLOG_MESSAGE_SIZE);
    if (*last != NULL)
      (*last)->next = message;
    else
      first = message;
    *last = message;
  }
  return first;
}

static NTSTATUS PutMessages(const UCHAR* bodies, ULONG length) {
  const ULONG count = length / TAMLOG_MESSAGE_SIZE;
  QueuedMessage *first, *last;
  KIRQL irql;
  if (count == 0 || length % TAMLOG_MESSAGE_SIZE != 0) return STATUS_INVALID_PARAMETER;
  first = MakeChain(bodies, count, &last);
  if (first == NULL) return STATUS_NO_MEMORY;

  KeAcquireSpinLock(&state.lock, &irql);
  if (state.newest != NULL)
    state.newest->next = first;
  else
    state.oldest = first;
  state.newest = last;
  state.counters.queued += count;
  state.counters.put += count;
  KeReleaseSpinLock(&state.lock, irql);
  return STATUS_SUCCESS;
}

static NTSTATUS GetMessageBody(UCHAR* body, ULONG length) {
  QueuedMessage* message = NULL;
  NTSTATUS status;
  KIRQL irql;

  KeAcquireSpinLock(&state.lock, &irql);
  status = state.failure;
  if (status == STATUS_SUCCESS && length < TAMLOG_MESSAGE_SIZE) status = STATUS_BUFFER_TOO_SMALL;
  if (status == STATUS_SUCCESS && state.oldest == NULL) status = STATUS_NO_MORE_ENTRIES;
  if (status == STATUS_SUCCESS) {
    message = state.oldest;
    state.oldest = message->next;
    if (state.oldest == NULL) state.newest = NULL;
    --state.counters.queued;
    ++state.counters.served;
  } else {
    ++state.counters.failed;
  }
  KeReleaseSpinLock(&state.lock, irql);

  if (message == NULL) return status;
  RtlCopyMemory(body, message->body, TAMLOG_MESSAGE_SIZE);
  ExFreePoolWithTag(message, POOL_TAG);
  return STATUS_SUCCESS;
}

static NTSTATUS SetFailure(const NTSTATUS* failure, ULONG length) {
  KIRQL irql;
  if (length < sizeof(*failure)) return STATUS_INVALID_PARAMETER;
  if (*failure != STATUS_SUCCESS && NT_SUCCESS(*failure)) return STATUS_INVALID_PARAMETER;
  KeAcquireSpinLock(&state.lock, &irql);
  state.failure = *failure;
  KeReleaseSpinLock(&state.lock, irql);
  return STATUS_SUCCESS;
}

static NTSTATUS ReadCounters(TamLogDriverCounters* counters, ULONG length) {
  KIRQL irql;
  if (length < sizeof(*counters)) return STATUS_BUFFER_TOO_SMALL;
  KeAcquireSpinLock(&state.lock, &irql);
  *counters = state.counters;
  KeReleaseSpinLock(&state.lock, irql);
  return STATUS_SUCCESS;
}

static void Reset(void) {
  QueuedMessage* dropped;
  KIRQL irql;
  KeAcquireSpinLock(&state.lock, &irql);
  dropped = state.oldest;
  state.oldest = state.newest = NULL;
  state.failure = STATUS_SUCCESS;
  state.counters.queued = state.counters.served = state.counters.failed = state.counters.put = 0;
  KeReleaseSpinLock(&state.lock, irql);
  FreeChain(dropped);
}

static NTSTATUS NTAPI OnCreate(PDEVICE_OBJECT device, PIRP irp) {
  KIRQL irql;
  (void)device;
  KeAcquireSpinLock(&state.lock, &irql);
  ++state.counters.openHandles;
  ++state.counters.opens;
  KeReleaseSpinLock(&state.lock, irql);
  return Complete(irp, STATUS_SUCCESS, 0);
}

static NTSTATUS NTAPI OnClose(PDEVICE_OBJECT device, PIRP irp) {
  KIRQL irql;
  (void)device;
  KeAcquireSpinLock(&state.lock, &irql);
  --state.counters.openHandles;
  KeReleaseSpinLock(&state.lock, irql);
  return Complete(irp, STATUS_SUCCESS, 0);
}

/* The buffered method passes one system buffer that holds the input and receives the output. */
static NTSTATUS NTAPI OnDeviceControl(PDEVICE_OBJECT device, PIRP irp) {
  const IO_STACK_LOCATION* call = IoGetCurrentIrpStackLocation(irp);
  const ULONG inLength = call->Parameters.DeviceIoControl.InputBufferLength;
  const ULONG outLength = call->Parameters.DeviceIoControl.OutputBufferLength;
  void* buffer = irp->AssociatedIrp.SystemBuffer;
  NTSTATUS status;
  (void)device;

  switch (call->Parameters.DeviceIoControl.IoControlCode) {
    case TAMLOG_IOCTL_GET_MESSAGE:
      status = GetMessageBody(buffer, outLength);
      return Complete(irp, status, status == STATUS_SUCCESS ? TAMLOG_MESSAGE_SIZE : 0);
    case TAMLOG_IOCTL_PUT_MESSAGES:
      return Complete(irp, PutMessages(buffer, inLength), 0);
    case TAMLOG_IOCTL_SET_FAILURE:
      return Complete(irp, SetFailure(buffer, inLength), 0);
    case TAMLOG_IOCTL_READ_COUNTERS:
      status = ReadCounters(buffer, outLength);
      return Complete(irp, status, status == STATUS_SUCCESS ? sizeof(TamLogDriverCounters) : 0);
    case TAMLOG_IOCTL_RESET:
      Reset();
      return Complete(irp, STATUS_SUCCESS, 0);
    default:
      return Complete(irp, STATUS_INVALID_DEVICE_REQUEST, 0);
  }
}

static void NTAPI OnUnload(PDRIVER_OBJECT driver) {
  (void)driver;
  IoDeleteSymbolicLink(&state.linkName);
  IoDeleteDevice(state.device);
  Reset();
}

NTSTATUS NTAPI DriverEntry(PDRIVER_OBJECT driver, PUNICODE_STRING registryPath) {
  UNICODE_STRING deviceName;
  NTSTATUS status;
  (void)registryPath;

  KeInitializeSpinLock(&state.lock);
  RtlInitUnicodeString(&deviceName, L"\\Device\\TAMLOG");
  RtlInitUnicodeString(&state.linkName, L"\\DosDevices\\TAMLOG");

  status = IoCreateDevice(driver, 0, &deviceName, FILE_DEVICE_UNKNOWN, 0, FALSE, &state.device);
  if (!NT_SUCCESS(status)) return status;
  status = IoCreateSymbolicLink(&state.linkName, &deviceName);
  if (!NT_SUCCESS(status)) {
    IoDeleteDevice(state.device);
    return status;
  }

  driver->MajorFunction[IRP_MJ_CREATE] = OnCreate;
  driver->MajorFunction[IRP_MJ_CLOSE] = OnClose;
  driver->MajorFunction[IRP_MJ_DEVICE_CONTROL] = OnDeviceControl;
  driver->DriverUnload = OnUnload;
  state.device->Flags &= ~(ULONG)DO_DEVICE_INITIALIZING;
  return STATUS_SUCCESS;
}

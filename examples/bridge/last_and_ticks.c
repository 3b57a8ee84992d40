/* The last values of a symbol, and then the batches of its partition as they come.
   usage: last_and_ticks URL SOURCE.SYMBOL PARTITION */
#include <nats/nats.h>

#include <stdio.h>
#include <stdlib.h>

static void need(natsStatus status, const char *what) {
    if (status != NATS_OK) {
        fprintf(stderr, "%s: %s\n", what, natsStatus_GetText(status));
        exit(1);
    }
}

int main(int argc, char **argv) {
    if (argc != 4) {
        fprintf(stderr, "usage: last_and_ticks URL SOURCE.SYMBOL PARTITION\n");
        return 2;
    }
    natsConnection *connection = NULL;
    jsCtx *stream = NULL;
    natsMsg *message = NULL;
    natsSubscription *ticks = NULL;
    jsDirectGetMsgOptions last;
    jsSubOptions options;
    char subject[256];

    setvbuf(stdout, NULL, _IOLBF, 0);
    need(natsConnection_ConnectTo(&connection, argv[1]), argv[1]);
    need(natsConnection_JetStream(&stream, connection, NULL), "JetStream");
    snprintf(subject, sizeof subject, "tivra.v1.last.%s", argv[2]);
    jsDirectGetMsgOptions_Init(&last);
    last.LastBySubject = subject;
    need(js_DirectGetMsg(&message, stream, "TIVRA_LAST", NULL, &last), subject);
    printf("%.*s\n", natsMsg_GetDataLength(message), natsMsg_GetData(message));
    natsMsg_Destroy(message);

    snprintf(subject, sizeof subject, "tivra.v1.tick.%s", argv[3]);
    jsSubOptions_Init(&options);
    options.Ordered = true;
    options.Config.DeliverPolicy = js_DeliverNew;
    need(js_SubscribeSync(&ticks, stream, subject, NULL, &options, NULL), subject);
    while (natsSubscription_NextMsg(&message, ticks, 10000) == NATS_OK) {
        printf("%.*s", natsMsg_GetDataLength(message), natsMsg_GetData(message));
        natsMsg_Destroy(message);
    }
    natsSubscription_Destroy(ticks);
    jsCtx_Destroy(stream);
    natsConnection_Destroy(connection);
    nats_Close();
    return 0;
}

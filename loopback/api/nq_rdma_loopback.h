/* SPDX-License-Identifier: Apache-2.0 */
/* What a test asks of the software RDMA in its own process, beside the calls of libibverbs and librdmacm. */
#ifndef NQ_RDMA_LOOPBACK_H
#define NQ_RDMA_LOOPBACK_H

#ifdef __cplusplus
extern "C"
{
#endif

/* A program that is to run without the loopback as well looks these functions up with dlsym(RTLD_DEFAULT, ...). All of
 * them may be called on any thread. */

/* Adds faults: "name:calls:action" separated by commas, as in NQ_RDMA_LOOPBACK_FAIL (see README.md). Calls are counted
 * from now. 0, or -1 with errno EINVAL, and then none is added. */
int nq_loopback_fail(const char* faults);

/* Forgets all faults, those of the environment too. */
void nq_loopback_clear_faults(void);

/* up != 0: messages and connection requests pass again. up == 0: they stall, and a send that stalls for the retry time
 * completes with IBV_WC_RETRY_EXC_ERR. Requests that are not answered in time end as unreachable. */
void nq_loopback_link(int up);

/* Ends all connections of this process as if their peers had died. */
void nq_loopback_break(void);

/* Time in milliseconds from a send's post to its transmission, for the sends posted from now on. */
void nq_loopback_delay(unsigned milliseconds);

/* Objects of the process that have been made and not destroyed. */
struct nq_loopback_objects
{
    long contexts; /* The one that all connection-manager ids share counts and stays. */
    long protection_domains;
    long memory_regions;
    long completion_channels;
    long completion_queues;
    long queue_pairs;
    long event_channels;
    long cm_ids;
    long cm_events; /* Read and not acknowledged, or not read yet. */
};

void nq_loopback_count(struct nq_loopback_objects* objects);

/* Sends that arrived where no receive was posted, each counted once, since the process began. Here they only wait. On a
 * network card each is sent again after the receiver's timer, 655 ms for connections of the connection manager. */
struct nq_loopback_waiting_sends
{
    unsigned long long own;      /* Of this process, at their peers. Known at the latest when the send completes. */
    unsigned long long of_peers; /* Of peers, in this process. */
};

void nq_loopback_count_waiting_sends(struct nq_loopback_waiting_sends* sends);

#ifdef __cplusplus
}
#endif

#endif

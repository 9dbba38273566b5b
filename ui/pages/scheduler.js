// The download scheduler: the weekly schedule, the rates that apply in paused hours, the order
// and number of running tasks.
import { parseSchedule } from '../schedule_grid.js';

export default {
  id: 'scheduler',
  title: 'Schedule',
  api: 'QRIX.Haulport2.Setting.Scheduler',
  intro: 'When downloads run, and how many run at once.',
  fields: [
    { name: 'enable_schedule', type: 'bool', label: 'Follow the weekly schedule' },
    { name: 'schedule', type: 'schedule', label: 'Weekly schedule' },
    { section: 'Alternative rates' },
    {
      name: 'download_rate', type: 'int', label: 'Alternative download rate', min: 0,
      unit: 'KB/s', hint: '0 means no limit.',
    },
    {
      name: 'upload_rate', type: 'int', label: 'Alternative upload rate', min: 0, unit: 'KB/s',
      hint: '0 means no limit.',
    },
    { section: 'Tasks' },
    {
      name: 'order', type: 'select', label: 'Start queued tasks',
      options: [['request', 'In the order they were added'], ['user', 'Taking turns by user']],
    },
    {
      name: 'max_tasks', type: 'int', label: 'Tasks running at once', min: 1,
      maxFrom: 'max_tasks_limit',
    },
  ],
  describe(data, page) {
    const limit = data.max_tasks_limit;
    page.rows.get('max_tasks').setHint(
      Number.isInteger(limit) ? `This device's memory allows up to ${limit}.` : '');
    page.rows.get('schedule').setHint(parseSchedule(data.schedule).exact ? '' :
      'The stored schedule was not a full week of hours; missing hours are shown paused.');
  },
};
